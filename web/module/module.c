/* The WebAssembly module inside the JavaScript package: streams in the module's own memory, for a host that
 * passes numbers and reads and writes memory. It allocates nothing: the host lays streams from __heap_base on. */
#include <korvane_stream.h>
#include <stddef.h>

/** The longest piece, in samples per channel; more than a stream's delay, so that its end fits. */
enum { PIECE = 1024 };

/** A configuration's numbers in the order of the record, from frame_length on. */
enum { SETTINGS = 14 };

/* What the host gives: called for each frame, if it asked for them, and for each event. */
void told_result(double position, int32_t length, int32_t speech, float score, float level_db,
                 float noise_db);
void told_event(int32_t kind, int32_t open, double position, double start);

static double settings[SETTINGS];

static union {
    float floats[2][PIECE];
    int16_t ints[2][PIECE];
} samples;
static float* const floats[2] = {samples.floats[0], samples.floats[1]};
static int16_t* const ints[2] = {samples.ints[0], samples.ints[1]};

static void on_result(void* user, const KorvaneStreamResult* r) {
    (void)user;
    told_result((double)r->position, r->length, r->speech, r->score, r->level_db, r->noise_db);
}

static void on_event(void* user, const KorvaneStreamEvent* e) {
    (void)user;
    told_event(e->kind, e->open, (double)e->position, (double)e->start);
}

double* module_settings(void);
void* module_samples(void);
int32_t module_piece(void);
int32_t module_defaults(int32_t rate, int32_t channels);
int32_t module_open(KorvaneStream* stream, int32_t rate, int32_t channels, int32_t wants_results);
int32_t module_process(KorvaneStream* stream, int32_t n, int32_t is_float, int32_t wants_output);
int32_t module_end(KorvaneStream* stream, int32_t is_float, int32_t wants_output);

/** Where module_defaults leaves the settings and module_open finds them. */
double* module_settings(void) { return settings; }

/** Where samples of both formats go in and out: channel 1 begins module_piece() samples behind channel 0. */
void* module_samples(void) { return &samples; }

int32_t module_piece(void) { return PIECE; }

int32_t module_defaults(int32_t rate, int32_t channels) {
    KorvaneStreamConfig c;
    const int32_t error = korvane_stream_defaults(&c, rate, channels);
    if (error == KORVANE_OK) {
        const double filled[SETTINGS] = {
            c.frame_length,  c.decision,      c.restore_level, c.enter_score, c.stay_score,
            c.enter_db,      c.stay_db,       c.onset_ms,      c.hangover_ms, c.min_gap_ms,
            c.min_speech_ms, c.max_speech_ms, c.pad_start_ms,  c.pad_end_ms,
        };
        for (int i = 0; i < SETTINGS; ++i) {
            settings[i] = filled[i];
        }
    }
    return error;
}

int32_t module_open(KorvaneStream* stream, int32_t rate, int32_t channels, int32_t wants_results) {
    KorvaneStreamConfig c;
    const int32_t error = korvane_stream_defaults(&c, rate, channels);
    if (error != KORVANE_OK) {
        return error;
    }
    c.frame_length = (int32_t)settings[0];
    c.decision = (int32_t)settings[1];
    c.restore_level = (int32_t)settings[2];
    c.enter_score = (float)settings[3];
    c.stay_score = (float)settings[4];
    c.enter_db = (float)settings[5];
    c.stay_db = (float)settings[6];
    c.onset_ms = (int32_t)settings[7];
    c.hangover_ms = (int32_t)settings[8];
    c.min_gap_ms = (int32_t)settings[9];
    c.min_speech_ms = (int32_t)settings[10];
    c.max_speech_ms = (int32_t)settings[11];
    c.pad_start_ms = (int32_t)settings[12];
    c.pad_end_ms = (int32_t)settings[13];
    c.on_result = wants_results != 0 ? on_result : NULL;
    c.on_event = on_event;
    return korvane_stream_init(stream, korvane_stream_size(), &c);
}

int32_t module_process(KorvaneStream* stream, int32_t n, int32_t is_float, int32_t wants_output) {
    if (is_float != 0) {
        return korvane_stream_process_planar_float(stream, (const float* const*)floats,
                                                   wants_output != 0 ? floats : NULL, n);
    }
    return korvane_stream_process_planar(stream, (const int16_t* const*)ints,
                                         wants_output != 0 ? ints : NULL, n);
}

int32_t module_end(KorvaneStream* stream, int32_t is_float, int32_t wants_output) {
    return is_float != 0 ? korvane_stream_end_planar_float(stream, wants_output ? floats : NULL)
                         : korvane_stream_end_planar(stream, wants_output ? ints : NULL);
}
