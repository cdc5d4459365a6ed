/* Sixteen elements at once in one graph, each with threads of its own, while another thread reads their properties,
 * asks for the latency and makes the sound begin anew. For the thread sanitizer; proofs/hosts runs it.
 *
 *     graph RECORDING.raw OUTPUT_FOLDER     48 kHz, mono, 16 bits; writes 0.raw to 15.raw
 */
#include <gst/gst.h>
#include <stdio.h>
#include <stdlib.h>

enum { BRANCHES = 16, ROUNDS = 3 };

static GstElement* make_graph(const char* recording, const char* folder) {
    GString* const text = g_string_new("");
    for (int i = 0; i < BRANCHES; ++i) {
        g_string_append_printf(
            text,
            "filesrc location=%s blocksize=%d ! audio/x-raw,format=S16LE,rate=48000,channels=1,"
            "layout=interleaved ! queue ! korvanevad name=vad%d ! queue ! filesink "
            "location=%s/%d.raw async=false ",
            recording, 480 * (i + 1), i, folder, i);
    }
    GError* error = NULL;
    GstElement* const graph = gst_parse_launch(text->str, &error);
    g_string_free(text, TRUE);
    if (error != NULL) {
        fprintf(stderr, "graph: %s\n", error->message);
        exit(1);
    }
    return graph;
}

static void look_at_elements(GstElement* graph) {
    for (int i = 0; i < BRANCHES; ++i) {
        char name[16];
        gboolean speech = FALSE;
        float score = 0;
        GstQuery* const query = gst_query_new_latency();
        g_snprintf(name, sizeof name, "vad%d", i);
        GstElement* const vad = gst_bin_get_by_name(GST_BIN(graph), name);
        g_object_get(vad, "speech", &speech, "score", &score, NULL);
        gst_element_query(vad, query);
        gst_query_unref(query);
        gst_object_unref(vad);
    }
}

/* Plays to the end. Returns how many messages told of speech. */
static int play(GstElement* graph) {
    GstBus* const bus = gst_element_get_bus(graph);
    int told = 0;
    gst_element_set_state(graph, GST_STATE_PLAYING);
    for (int over = 0; !over;) {
        GstMessage* const message = gst_bus_timed_pop(bus, GST_MSECOND);
        look_at_elements(graph);
        if (message == NULL) {
            continue;
        }
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
            fprintf(stderr, "graph: an element failed\n");
            exit(1);
        }
        over = GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
        told += gst_message_has_name(message, "korvanevad");
        gst_message_unref(message);
    }
    gst_object_unref(bus);
    return told;
}

int main(int argc, char** argv) {
    gst_init(NULL, NULL);
    if (argc != 3) {
        fprintf(stderr, "usage: graph RECORDING.raw OUTPUT_FOLDER\n");
        return 2;
    }
    GstElement* const graph = make_graph(argv[1], argv[2]);
    for (int round = 0; round < ROUNDS; ++round) {
        printf("round %d: %d messages of %d elements\n", round, play(graph), BRANCHES);
        gst_element_set_state(graph, round % 2 == 0 ? GST_STATE_READY : GST_STATE_NULL);
    }
    gst_element_set_state(graph, GST_STATE_NULL);
    gst_object_unref(graph);
    return 0;
}
