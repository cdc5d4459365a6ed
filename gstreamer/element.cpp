#include "element.h"

#include <gst/base/gstbasetransform.h>

#include <atomic>

#include "session.h"
#include "settings.h"

using korvane::Format;
using korvane::Piece;
using korvane::Session;
using korvane::Settings;

namespace {

/** What an element has beyond its base class. */
struct State {
    Settings settings = korvane::default_settings();  ///< under the object's lock
    GstClockTime latency = 0;                         ///< under the object's lock
    Session session;                                  ///< of the streaming thread
    std::atomic<bool> speech{false};
    std::atomic<float> score{0};
};

struct KorvaneVad {
    GstBaseTransform base;
    State* state;
};
struct KorvaneVadClass {
    GstBaseTransformClass base;
};

GParamSpec* speech_property = nullptr;
guint speech_id = 0;  // score comes behind

KorvaneVad* element_of(void* object) { return static_cast<KorvaneVad*>(object); }
State& state_of(void* object) { return *element_of(object)->state; }

}  // namespace

#define korvane_vad_parent_class parent_class
G_DEFINE_TYPE(KorvaneVad, korvane_vad, GST_TYPE_BASE_TRANSFORM)

namespace {

GstBaseTransformClass* parent() { return GST_BASE_TRANSFORM_CLASS(parent_class); }

// ---- What the stream tells --------------------------------------------------------------------------------------

void post_speech(KorvaneVad* self, const KorvaneStreamEvent& event) {
    const Session& session = self->state->session;
    const GstSegment* const segment = &self->base.segment;
    const GstClockTime time = session.time_of(event.position);
    const bool begins = event.kind == KORVANE_SPEECH_START;
    const bool timed = segment->format == GST_FORMAT_TIME;  // not so from a file without a parser
    GstStructure* const told = gst_structure_new(
        "korvanevad", "speech", G_TYPE_BOOLEAN, static_cast<gboolean>(begins),  //
        "timestamp", G_TYPE_UINT64, time,                                       //
        "stream-time", G_TYPE_UINT64,
        timed ? gst_segment_to_stream_time(segment, GST_FORMAT_TIME, time) : GST_CLOCK_TIME_NONE,
        "running-time", G_TYPE_UINT64,
        timed ? gst_segment_to_running_time(segment, GST_FORMAT_TIME, time) : GST_CLOCK_TIME_NONE,
        "start", G_TYPE_UINT64, session.time_of(event.start),  //
        "open", G_TYPE_BOOLEAN, static_cast<gboolean>(event.open), nullptr);
    gst_element_post_message(GST_ELEMENT(self), gst_message_new_element(GST_OBJECT(self), told));
}

void on_event(void* user, const KorvaneStreamEvent* event) {
    KorvaneVad* const self = element_of(user);
    self->state->session.mark(*event);
    self->state->speech = event->kind == KORVANE_SPEECH_START;
    post_speech(self, *event);
    g_object_notify_by_pspec(G_OBJECT(self), speech_property);
}

void on_result(void* user, const KorvaneStreamResult* result) {
    state_of(user).score = result->score;
}

// ---- Caps and latency -------------------------------------------------------------------------------------------

#if G_BYTE_ORDER == G_LITTLE_ENDIAN
#define KORVANE_FLOAT "F32LE"
#define KORVANE_INTEGER "S16LE"
#else
#define KORVANE_FLOAT "F32BE"
#define KORVANE_INTEGER "S16BE"
#endif

#define KORVANE_CAPS                                                       \
    "audio/x-raw, format = (string) { " KORVANE_INTEGER ", " KORVANE_FLOAT \
    " }, rate = (int) [ 1, 49999 ], channels = (int) [ 1, 2 ], layout = (string) interleaved"

bool format_of(const GstCaps* caps, Format& format) {
    const GstStructure* const structure = gst_caps_get_structure(caps, 0);
    const char* const name = gst_structure_get_string(structure, "format");
    format.is_float = g_strcmp0(name, KORVANE_FLOAT) == 0;
    return name != nullptr && gst_structure_get_int(structure, "rate", &format.rate) &&
           gst_structure_get_int(structure, "channels", &format.channels);
}

void set_latency(KorvaneVad* self, GstClockTime latency) {
    GST_OBJECT_LOCK(self);
    const bool changed = self->state->latency != latency;
    self->state->latency = latency;
    GST_OBJECT_UNLOCK(self);
    if (changed) {
        gst_element_post_message(GST_ELEMENT(self), gst_message_new_latency(GST_OBJECT(self)));
    }
}

gboolean set_caps(GstBaseTransform* base, GstCaps* caps, GstCaps* /*the same*/) {
    KorvaneVad* const self = element_of(base);
    Session& session = self->state->session;
    Format format{};
    if (!format_of(caps, format)) {
        return FALSE;
    }
    GST_OBJECT_LOCK(self);
    Settings settings = self->state->settings;
    GST_OBJECT_UNLOCK(self);
    settings.config.user = self;
    settings.config.on_event = on_event;
    settings.config.on_result = on_result;
    const char* const error = session.configure(settings, format);
    if (error != nullptr) {
        GST_ELEMENT_ERROR(self, LIBRARY, SETTINGS, ("%s", error),
                          ("rate %d, channels %d", format.rate, format.channels));
        return FALSE;
    }
    set_latency(self, gst_util_uint64_scale_int_ceil(static_cast<guint64>(session.latency()),
                                                     GST_SECOND, format.rate));
    return TRUE;
}

/** Adds the element's own latency to that of what comes before it. */
gboolean add_latency(KorvaneVad* self, GstQuery* query) {
    if (!gst_pad_peer_query(self->base.sinkpad, query)) {
        return FALSE;
    }
    gboolean live = FALSE;
    GstClockTime least = 0;
    GstClockTime most = 0;
    gst_query_parse_latency(query, &live, &least, &most);
    GST_OBJECT_LOCK(self);
    const GstClockTime own = self->state->latency;
    GST_OBJECT_UNLOCK(self);
    gst_query_set_latency(query, live, least + own,
                          GST_CLOCK_TIME_IS_VALID(most) ? most + own : most);
    return TRUE;
}

gboolean query(GstBaseTransform* base, GstPadDirection direction, GstQuery* query) {
    if (direction == GST_PAD_SRC && GST_QUERY_TYPE(query) == GST_QUERY_LATENCY) {
        return add_latency(element_of(base), query);
    }
    return parent()->query(base, direction, query);
}

// ---- Sound ------------------------------------------------------------------------------------------------------

/** The next buffer that goes on; gaps before it have gone on then. Null where nothing is due. */
GstBuffer* next_buffer(KorvaneVad* self) {
    Piece piece{};
    while (self->state->session.take(piece)) {
        if (!piece.silence) {
            return piece.buffer;
        }
        if (self->state->session.silence() == korvane::kMute) {
            gst_buffer_memset(piece.buffer, 0, 0, gst_buffer_get_size(piece.buffer));
            gst_buffer_set_flags(piece.buffer, GST_BUFFER_FLAG_GAP);
            return piece.buffer;
        }
        gst_buffer_unref(piece.buffer);
        gst_pad_push_event(self->base.srcpad, gst_event_new_gap(piece.time, piece.duration));
    }
    return nullptr;
}

/** The sound is over, or goes on elsewhere: what is inside goes on. */
GstFlowReturn drain(KorvaneVad* self) {
    Session& session = self->state->session;
    if (!session.is_running()) {
        return GST_FLOW_OK;
    }
    session.end();
    GstFlowReturn flow = GST_FLOW_OK;
    for (GstBuffer* buffer = next_buffer(self); buffer != nullptr; buffer = next_buffer(self)) {
        flow = gst_pad_push(self->base.srcpad, buffer);
        if (flow != GST_FLOW_OK) {
            break;
        }
    }
    return flow;
}

/** What is inside is lost; speech that goes on ends. */
void abandon(KorvaneVad* self) {
    if (self->state->session.is_running()) {
        self->state->session.abandon();
    }
}

/** Takes a buffer in; it goes on at once where nothing is to happen to it. */
GstFlowReturn take_in(KorvaneVad* self, GstBuffer* buffer, GstBuffer** out) {
    Session& session = self->state->session;
    if (session.is_running() && !session.continues_at(GST_BUFFER_PTS(buffer))) {
        const GstFlowReturn flow = drain(self);
        if (flow != GST_FLOW_OK) {
            gst_buffer_unref(buffer);
            return flow;
        }
    }
    if (!session.is_running()) {
        session.begin(GST_BUFFER_PTS(buffer));
    }
    const bool read =
        session.goes_on_as_it_is() ? session.hear(*out = buffer) : session.put(buffer);
    if (!read) {
        GST_ELEMENT_ERROR(self, RESOURCE, READ, (nullptr),
                          ("a buffer's memory cannot be read, or holds a part of a frame"));
        return GST_FLOW_ERROR;
    }
    return GST_FLOW_OK;
}

GstFlowReturn generate_output(GstBaseTransform* base, GstBuffer** out) {
    KorvaneVad* const self = element_of(base);
    GstBuffer* const in = base->queued_buf;
    base->queued_buf = nullptr;
    if (in != nullptr) {
        if (!self->state->session.is_configured()) {
            gst_buffer_unref(in);
            return GST_FLOW_NOT_NEGOTIATED;
        }
        const GstFlowReturn flow = take_in(self, in, out);
        if (flow != GST_FLOW_OK || *out != nullptr) {
            return flow;
        }
    }
    *out = next_buffer(self);
    return GST_FLOW_OK;
}

bool are_new_caps(GstBaseTransform* base, GstEvent* event) {
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    g_autoptr(GstCaps) current = gst_pad_get_current_caps(base->sinkpad);
    return current == nullptr || !gst_caps_is_equal(caps, current);
}

bool is_new_segment(const GstBaseTransform* base, GstEvent* event) {
    GstSegment segment;
    gst_event_copy_segment(event, &segment);
    segment.position = base->segment.position;  // moves with the sound
    return !gst_segment_is_equal(&segment, &base->segment);
}

/** Whether what comes behind the event does not go on from what came before it. */
bool parts_the_sound(GstBaseTransform* base, GstEvent* event) {
    switch (GST_EVENT_TYPE(event)) {
        case GST_EVENT_CAPS:
            return are_new_caps(base, event);
        case GST_EVENT_SEGMENT:
            return is_new_segment(base, event);
        case GST_EVENT_STREAM_START:
        case GST_EVENT_GAP:
        case GST_EVENT_SEGMENT_DONE:
        case GST_EVENT_EOS:
            return true;
        default:
            return false;
    }
}

gboolean sink_event(GstBaseTransform* base, GstEvent* event) {
    if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP) {
        abandon(element_of(base));
    } else if (parts_the_sound(base, event)) {
        drain(element_of(base));
    }
    return parent()->sink_event(base, event);
}

gboolean stop(GstBaseTransform* base) {
    abandon(element_of(base));
    return TRUE;
}

// ---- Properties -------------------------------------------------------------------------------------------------

void set_property(GObject* object, guint id, const GValue* value, GParamSpec* property) {
    GST_OBJECT_LOCK(object);
    const bool known = set_setting(state_of(object).settings, id, value);
    GST_OBJECT_UNLOCK(object);
    if (!known) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
    }
}

void get_property(GObject* object, guint id, GValue* value, GParamSpec* property) {
    const State& state = state_of(object);
    GST_OBJECT_LOCK(object);
    const bool known = get_setting(state.settings, id, value);
    GST_OBJECT_UNLOCK(object);
    if (id == speech_id) {
        g_value_set_boolean(value, state.speech);
    } else if (id == speech_id + 1) {
        g_value_set_float(value, state.score);
    } else if (!known) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
    }
}

void finalize(GObject* object) {
    delete element_of(object)->state;
    G_OBJECT_CLASS(parent_class)->finalize(object);
}

void install_properties(GObjectClass* object) {
    object->set_property = set_property;
    object->get_property = get_property;
    object->finalize = finalize;
    const auto readable = static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
    speech_id = korvane::install_settings(object);
    speech_property = g_param_spec_boolean("speech", "Speech", "Somebody speaks", FALSE, readable);
    g_object_class_install_property(object, speech_id, speech_property);
    g_object_class_install_property(
        object, speech_id + 1,
        g_param_spec_float(
            "score", "Score",
            "Of the last frame of 10 ms, 0 to 1; exactly 0 or 1 unless decision=adaptive", 0, 1, 0,
            readable));
}

}  // namespace

static void korvane_vad_class_init(KorvaneVadClass* type) {
    install_properties(G_OBJECT_CLASS(type));
    GstBaseTransformClass* const base = GST_BASE_TRANSFORM_CLASS(type);
    base->set_caps = set_caps;
    base->query = query;
    base->sink_event = sink_event;
    base->generate_output = generate_output;
    base->stop = stop;

    static GstStaticPadTemplate sink = GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                                                               GST_STATIC_CAPS(KORVANE_CAPS));
    static GstStaticPadTemplate source =
        GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(KORVANE_CAPS));
    GstElementClass* const element = GST_ELEMENT_CLASS(type);
    gst_element_class_add_static_pad_template(element, &sink);
    gst_element_class_add_static_pad_template(element, &source);
    gst_element_class_set_static_metadata(
        element, "Korvane voice-activity detector", "Filter/Effect/Audio",
        "Takes steady noise out of speech and tells where somebody speaks",
        "Korvane VAD maintainers <maintainers@korvane-vad.invalid>");
}

static void korvane_vad_init(KorvaneVad* self) {
    self->state = new State;
    gst_base_transform_set_passthrough(&self->base, FALSE);
}
