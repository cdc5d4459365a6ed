/* The detector and its noise suppressor as LADSPA plugins, korvane_mono and korvane_stereo.
 *
 * Sound goes out `latency` samples late, as the port of that name says. A change of a setting begins
 * the stream anew, which costs that much silence: a stream's settings are fixed when it is made.
 * Nothing is allocated in run, so a host may call it from its audio thread.
 */
#include <korvane_stream.h>
#include <ladspa.h>
#include <stdlib.h>
#include <string.h>

/* Ports: controls in, controls out, then sound in for each channel, then sound out. */
enum {
    BYPASS,
    DECISION,
    ENTER_SCORE,
    STAY_SCORE,
    ENTER_DB,
    STAY_DB,
    ONSET_MS,
    HANGOVER_MS,
    SPEECH,
    SCORE,
    LATENCY,
    CONTROLS,
    MAX_CHANNELS = 2,
    MAX_PORTS = CONTROLS + 2 * MAX_CHANNELS
};

typedef struct Instance {
    KorvaneStream* stream;
    KorvaneStreamConfig config;
    LADSPA_Data* ports[MAX_PORTS];
} Instance;

/** Keeps a control inside the range that a stream takes; what is not a number becomes the least. */
static float clamped(float value, float least, float greatest) {
    if (!(value >= least)) {
        return least;
    }
    return value <= greatest ? value : greatest;
}

static int32_t rounded(float value, int32_t greatest) {
    return (int32_t)(clamped(value, 0, (float)greatest) + 0.5F);
}

static KorvaneStreamConfig config_of_ports(const Instance* self) {
    LADSPA_Data* const* const port = self->ports;
    KorvaneStreamConfig config = self->config;
    config.decision = rounded(*port[DECISION], KORVANE_DECISION_DETECTOR);
    config.enter_score = clamped(*port[ENTER_SCORE], 0, 1);
    config.stay_score = clamped(*port[STAY_SCORE], 0, config.enter_score);
    config.enter_db = clamped(*port[ENTER_DB], -140, 0);
    config.stay_db = clamped(*port[STAY_DB], -140, config.enter_db);
    config.onset_ms = rounded(*port[ONSET_MS], KORVANE_STREAM_MAX_MS);
    config.hangover_ms = rounded(*port[HANGOVER_MS], KORVANE_STREAM_MAX_MS);
    return config;
}

static int same_settings(const KorvaneStreamConfig* a, const KorvaneStreamConfig* b) {
    return a->decision == b->decision && a->enter_score == b->enter_score &&
           a->stay_score == b->stay_score && a->enter_db == b->enter_db &&
           a->stay_db == b->stay_db && a->onset_ms == b->onset_ms &&
           a->hangover_ms == b->hangover_ms;
}

static LADSPA_Handle instantiate(const LADSPA_Descriptor* descriptor, unsigned long rate) {
    const int32_t channels = (int32_t)(descriptor->PortCount - CONTROLS) / 2;
    Instance* const self = calloc(1, sizeof *self);
    /* A rate that the library does not take is refused; the host then says so. */
    if (self != NULL && rate <= INT32_MAX &&
        korvane_stream_defaults(&self->config, (int32_t)rate, channels) == KORVANE_OK) {
        self->stream = korvane_stream_create(&self->config, NULL);
    }
    if (self != NULL && self->stream == NULL) {
        free(self);
        return NULL;
    }
    return self;
}

static void connect_port(LADSPA_Handle instance, unsigned long port, LADSPA_Data* data) {
    ((Instance*)instance)->ports[port] = data;
}

static void activate(LADSPA_Handle instance) {
    korvane_stream_reset(((Instance*)instance)->stream);
}

static void follow_settings(Instance* self) {
    const KorvaneStreamConfig config = config_of_ports(self);
    if (!same_settings(&config, &self->config)) {
        self->config = config;
        korvane_stream_init(self->stream, korvane_stream_size(), &config);
    }
}

static void report(const Instance* self, int clean, int32_t speech) {
    KorvaneStreamResult last;
    const int known = korvane_stream_last(self->stream, &last) == KORVANE_OK;
    *self->ports[SPEECH] = speech > 0 ? 1 : 0;
    *self->ports[SCORE] = known ? last.score : 0;
    *self->ports[LATENCY] = clean ? (float)korvane_stream_delay(self->stream) : 0;
}

static void run(LADSPA_Handle instance, unsigned long count) {
    /* A host may give any output the place of any input. So samples go through a buffer. */
    enum { PIECE = 256 };
    float piece[PIECE * MAX_CHANNELS];
    Instance* const self = instance;
    const unsigned long channels = (unsigned long)self->config.channels;
    LADSPA_Data* const* const in = self->ports + CONTROLS;
    LADSPA_Data* const* const out = in + channels;
    const int clean = !(*self->ports[BYPASS] > 0);
    int32_t speech = 0;
    follow_settings(self);
    for (unsigned long done = 0, n; done < count; done += n) {
        n = count - done < PIECE ? count - done : PIECE;
        for (unsigned long i = 0; i < n * channels; ++i) {
            piece[i] = in[i % channels][done + i / channels];
        }
        speech =
            korvane_stream_process_float(self->stream, piece, clean ? piece : NULL, (int32_t)n);
        for (unsigned long i = 0; i < n * channels; ++i) {
            out[i % channels][done + i / channels] = piece[i];
        }
    }
    if (count == 0) {
        speech = korvane_stream_process_float(self->stream, NULL, NULL, 0);
    }
    report(self, clean, speech);
}

static void cleanup(LADSPA_Handle instance) {
    korvane_stream_destroy(((Instance*)instance)->stream);
    free(instance);
}

/* ---- What hosts are told -------------------------------------------------------------------- */

enum {
    INPUT = LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL,
    OUTPUT = LADSPA_PORT_OUTPUT | LADSPA_PORT_CONTROL,
    SOUND_IN = LADSPA_PORT_INPUT | LADSPA_PORT_AUDIO,
    SOUND_OUT = LADSPA_PORT_OUTPUT | LADSPA_PORT_AUDIO,
    BOUNDED = LADSPA_HINT_BOUNDED_BELOW | LADSPA_HINT_BOUNDED_ABOVE,
    TIME = BOUNDED | LADSPA_HINT_INTEGER,
    MIDDLE = BOUNDED | LADSPA_HINT_DEFAULT_MIDDLE
};

#define CONTROL_KINDS INPUT, INPUT, INPUT, INPUT, INPUT, INPUT, INPUT, INPUT, OUTPUT, OUTPUT, OUTPUT
static const LADSPA_PortDescriptor mono_kinds[] = {CONTROL_KINDS, SOUND_IN, SOUND_OUT};
static const LADSPA_PortDescriptor stereo_kinds[] = {CONTROL_KINDS, SOUND_IN, SOUND_IN, SOUND_OUT,
                                                     SOUND_OUT};

#define CONTROL_NAMES                                                                             \
    "Bypass", "Decision (0 adaptive, 1 fixed, 2 detector)", "Enter score", "Stay score",          \
        "Enter level (dB)", "Stay level (dB)", "Onset (ms)", "Hang-over (ms)", "Speech", "Score", \
        "latency"
static const char* const mono_names[] = {CONTROL_NAMES, "Input", "Output"};
static const char* const stereo_names[] = {CONTROL_NAMES, "Input left", "Input right",
                                           "Output left", "Output right"};

/* LADSPA can only say that a default is some way between two bounds. The bounds are such that the
 * middle is the library's own default; settings beyond them are taken all the same. */
static const LADSPA_PortRangeHint hints[MAX_PORTS] = {
    [BYPASS] = {LADSPA_HINT_TOGGLED | LADSPA_HINT_DEFAULT_0, 0, 1},
    [DECISION] = {BOUNDED | LADSPA_HINT_INTEGER | LADSPA_HINT_DEFAULT_0, 0, 2},
    [ENTER_SCORE] = {MIDDLE, 0, 1},
    [STAY_SCORE] = {MIDDLE, 0, 0.8F},
    [ENTER_DB] = {MIDDLE, -90, 0},
    [STAY_DB] = {MIDDLE, -100, 0},
    [ONSET_MS] = {TIME | LADSPA_HINT_DEFAULT_0, 0, 1000},
    [HANGOVER_MS] = {TIME | LADSPA_HINT_DEFAULT_MIDDLE | LADSPA_HINT_LOGARITHMIC, 1, 1600},
    /* A value to begin with: sox asks for one of outputs, too. */
    [SPEECH] = {LADSPA_HINT_TOGGLED | LADSPA_HINT_DEFAULT_0, 0, 1},
    [SCORE] = {BOUNDED | LADSPA_HINT_DEFAULT_0, 0, 1},
    [LATENCY] = {BOUNDED | LADSPA_HINT_INTEGER | LADSPA_HINT_DEFAULT_0, 0, 1000},
};

/* The numbers are "KV1" and "KV2" in ASCII; they are not registered with anybody. */
static const LADSPA_Descriptor plugins[] = {
    {.UniqueID = 0x4B5631,
     .Label = "korvane_mono",
     .Properties = LADSPA_PROPERTY_HARD_RT_CAPABLE,
     .Name = "Korvane noise suppressor and speech detector, mono",
     .Maker = "Korvane VAD maintainers",
     .Copyright = "Korvane VAD maintainers",
     .PortCount = CONTROLS + 2,
     .PortDescriptors = mono_kinds,
     .PortNames = mono_names,
     .PortRangeHints = hints,
     .instantiate = instantiate,
     .connect_port = connect_port,
     .activate = activate,
     .run = run,
     .cleanup = cleanup},
    {.UniqueID = 0x4B5632,
     .Label = "korvane_stereo",
     .Properties = LADSPA_PROPERTY_HARD_RT_CAPABLE,
     .Name = "Korvane noise suppressor and speech detector, stereo",
     .Maker = "Korvane VAD maintainers",
     .Copyright = "Korvane VAD maintainers",
     .PortCount = CONTROLS + 4,
     .PortDescriptors = stereo_kinds,
     .PortNames = stereo_names,
     .PortRangeHints = hints,
     .instantiate = instantiate,
     .connect_port = connect_port,
     .activate = activate,
     .run = run,
     .cleanup = cleanup},
};

__attribute__((visibility("default"))) const LADSPA_Descriptor* ladspa_descriptor(
    unsigned long index) {
    return index < sizeof plugins / sizeof *plugins ? &plugins[index] : NULL;
}
