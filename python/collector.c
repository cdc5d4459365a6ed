/* Between a stream and Python: keeps what the callbacks tell until a call is over, so that a chunk of any length is
 * one call, which holds no lock of the interpreter's. */
#include <korvane_stream.h>
#include <stdlib.h>
#include <string.h>

#define EXPORT __attribute__((visibility("default")))

/** Samples per channel in one call of the library. */
enum { PIECE = 1 << 20 };

/** What Python reads, as laid out here, until the next call. */
typedef struct Collector {
    const KorvaneStreamResult* results;
    size_t result_count;
    const KorvaneStreamEvent* events;
    size_t event_count;
    KorvaneStream* stream;
    KorvaneStreamResult* result_room;
    KorvaneStreamEvent* event_room;
    size_t result_capacity;
    size_t event_capacity;
    int32_t channels;
    int32_t out_of_memory;
} Collector;

EXPORT Collector* korvane_collector_open(const KorvaneStreamConfig* config, int32_t wants_results,
                                         int32_t* error);
EXPORT void korvane_collector_close(Collector* c);
EXPORT int32_t korvane_collector_process(Collector* c, const void* in, void* out, int64_t n,
                                         int32_t is_float);
EXPORT int32_t korvane_collector_end(Collector* c, void* out, int32_t is_float);
EXPORT int32_t korvane_collector_reset(Collector* c);
EXPORT int32_t korvane_collector_delay(const Collector* c);
EXPORT int32_t korvane_collector_defaults(KorvaneStreamConfig* config, int32_t rate,
                                          int32_t channels);

/** Room for one more item of `size` bytes; what was there stays where there is none. */
static void* with_room(void* room, size_t count, size_t* capacity, size_t size) {
    if (count < *capacity) {
        return room;
    }
    const size_t wanted = *capacity == 0 ? 64 : 2 * *capacity;
    void* const grown = realloc(room, wanted * size);
    if (grown != NULL) {
        *capacity = wanted;
    }
    return grown;
}

static void on_result(void* user, const KorvaneStreamResult* result) {
    Collector* const c = user;
    KorvaneStreamResult* const room =
        with_room(c->result_room, c->result_count, &c->result_capacity, sizeof *room);
    if (room == NULL) {
        c->out_of_memory = 1;
        return;
    }
    c->result_room = room;
    c->results = room;
    room[c->result_count++] = *result;
}

static void on_event(void* user, const KorvaneStreamEvent* event) {
    Collector* const c = user;
    KorvaneStreamEvent* const room =
        with_room(c->event_room, c->event_count, &c->event_capacity, sizeof *room);
    if (room == NULL) {
        c->out_of_memory = 1;
        return;
    }
    c->event_room = room;
    c->events = room;
    room[c->event_count++] = *event;
}

static void begin_call(Collector* c) {
    c->result_count = 0;
    c->event_count = 0;
    c->out_of_memory = 0;
}

static int32_t end_call(const Collector* c, int32_t answer) {
    return c->out_of_memory ? (int32_t)KORVANE_ERROR_NO_MEMORY : answer;
}

int32_t korvane_collector_defaults(KorvaneStreamConfig* config, int32_t rate, int32_t channels) {
    return korvane_stream_defaults(config, rate, channels);
}

Collector* korvane_collector_open(const KorvaneStreamConfig* config, int32_t wants_results,
                                  int32_t* error) {
    Collector* const c = calloc(1, sizeof *c);
    if (c == NULL) {
        *error = KORVANE_ERROR_NO_MEMORY;
        return NULL;
    }
    KorvaneStreamConfig own = *config;
    own.user = c;
    own.on_result = wants_results ? on_result : NULL;
    own.on_event = on_event;
    c->channels = own.channels;
    c->stream = korvane_stream_create(&own, error);
    if (c->stream == NULL) {
        free(c);
        return NULL;
    }
    return c;
}

void korvane_collector_close(Collector* c) {
    korvane_stream_destroy(c->stream);
    free(c->result_room);
    free(c->event_room);
    free(c);
}

/** n samples per channel, interleaved; `out` may be null. */
int32_t korvane_collector_process(Collector* c, const void* in, void* out, int64_t n,
                                  int32_t is_float) {
    begin_call(c);
    int32_t answer = KORVANE_OK;
    for (int64_t at = 0; (at < n || at == 0) && answer >= 0; at += PIECE) {
        const int32_t count = n - at < PIECE ? (int32_t)(n - at) : PIECE;
        const int64_t first = at * c->channels;
        answer = is_float ? korvane_stream_process_float(c->stream, (const float*)in + first,
                                                         out ? (float*)out + first : NULL, count)
                          : korvane_stream_process(c->stream, (const int16_t*)in + first,
                                                   out ? (int16_t*)out + first : NULL, count);
    }
    return end_call(c, answer);
}

int32_t korvane_collector_end(Collector* c, void* out, int32_t is_float) {
    begin_call(c);
    return end_call(c, is_float ? korvane_stream_end_float(c->stream, out)
                                : korvane_stream_end(c->stream, out));
}

int32_t korvane_collector_reset(Collector* c) {
    begin_call(c);
    return korvane_stream_reset(c->stream);
}

int32_t korvane_collector_delay(const Collector* c) { return korvane_stream_delay(c->stream); }
