#include "settings.h"

#include <gst/gst.h>

#include <iterator>

namespace korvane {
namespace {

struct Threshold {
    const char *name, *nick, *blurb;
    float least, greatest;
    float KorvaneStreamConfig::*member;
};
constexpr Threshold kThresholds[] = {
    {"enter-score", "Enter score", "Decision adaptive: speech begins at this score", 0, 1,
     &KorvaneStreamConfig::enter_score},
    {"stay-score", "Stay score",
     "Decision adaptive: speech goes on above this score, at most enter-score", 0, 1,
     &KorvaneStreamConfig::stay_score},
    {"enter-db", "Enter level", "Decision fixed: speech begins above this level, in dB", -140, 0,
     &KorvaneStreamConfig::enter_db},
    {"stay-db", "Stay level",
     "Decision fixed: speech goes on above this level, in dB, at most enter-db", -140, 0,
     &KorvaneStreamConfig::stay_db}};

struct Time {
    const char *name, *nick, *blurb;
    int32_t KorvaneStreamConfig::*member;
};
constexpr Time kTimes[] = {
    {"onset-ms", "Onset",
     "Speech is declared after so much of it, in ms; not with decision detector",
     &KorvaneStreamConfig::onset_ms},
    {"hangover-ms", "Hang-over",
     "Speech is over after so much of silence, in ms; not with decision detector",
     &KorvaneStreamConfig::hangover_ms},
    {"min-gap-ms", "Shortest gap", "Shorter gaps between segments are filled, in ms",
     &KorvaneStreamConfig::min_gap_ms},
    {"min-speech-ms", "Shortest segment", "Shorter segments are dropped, in ms",
     &KorvaneStreamConfig::min_speech_ms},
    {"max-speech-ms", "Longest segment",
     "Longer segments are split, in ms; 0 never. Only with silence=pass",
     &KorvaneStreamConfig::max_speech_ms},
    {"pad-start-ms", "Padding before", "Added before a segment, in ms",
     &KorvaneStreamConfig::pad_start_ms},
    {"pad-end-ms", "Padding behind", "Added behind a segment, in ms",
     &KorvaneStreamConfig::pad_end_ms}};

enum : guint {
    kFirstThreshold = 1,
    kFirstTime = kFirstThreshold + std::size(kThresholds),
    kDecision = kFirstTime + std::size(kTimes),
    kRestoreLevel,
    kClean,
    kSilence,
    kFree
};

// A stream's settings are fixed when it begins.
constexpr auto kFlags =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);

GType decision_type() {
    static const GEnumValue kValues[] = {
        {KORVANE_DECISION_ADAPTIVE, "A score that follows speech and noise", "adaptive"},
        {KORVANE_DECISION_FIXED, "The level of the cleaned sound", "fixed"},
        {KORVANE_DECISION_DETECTOR, "The level and counts of libKorvaneVAD", "detector"},
        {0, nullptr, nullptr}};
    static const GType type = g_enum_register_static("KorvaneVadDecision", kValues);
    return type;
}

GType silence_type() {
    static const GEnumValue kValues[] = {{kPass, "All sound goes on", "pass"},
                                         {kMute, "Zeros, in buffers flagged GAP", "mute"},
                                         {kGap, "Gap events instead of buffers", "gap"},
                                         {0, nullptr, nullptr}};
    static const GType type = g_enum_register_static("KorvaneVadSilence", kValues);
    return type;
}

void install_thresholds_and_times(GObjectClass* object, const KorvaneStreamConfig& config) {
    guint id = kFirstThreshold;
    for (const Threshold& t : kThresholds) {
        g_object_class_install_property(object, id++,
                                        g_param_spec_float(t.name, t.nick, t.blurb, t.least,
                                                           t.greatest, config.*t.member, kFlags));
    }
    for (const Time& t : kTimes) {
        g_object_class_install_property(
            object, id++,
            g_param_spec_int(t.name, t.nick, t.blurb, 0, KORVANE_STREAM_MAX_MS, config.*t.member,
                             kFlags));
    }
}

void install_choices(GObjectClass* object, const Settings& settings) {
    gst_type_mark_as_plugin_api(decision_type(), static_cast<GstPluginAPIFlags>(0));
    gst_type_mark_as_plugin_api(silence_type(), static_cast<GstPluginAPIFlags>(0));
    g_object_class_install_property(
        object, kDecision,
        g_param_spec_enum("decision", "Decision", "How speech is told from the rest",
                          decision_type(), settings.config.decision, kFlags));
    g_object_class_install_property(
        object, kRestoreLevel,
        g_param_spec_boolean(
            "restore-level", "Restore level",
            "Cleaned sound is as loud as it came in, not as the suppressor leaves it",
            settings.config.restore_level != 0, kFlags));
    g_object_class_install_property(
        object, kClean,
        g_param_spec_boolean("clean", "Clean", "The noise is taken out of the sound that goes on",
                             settings.clean, kFlags));
    g_object_class_install_property(
        object, kSilence,
        g_param_spec_enum("silence", "Silence",
                          "What goes on where nobody speaks; all but pass makes the latency longer",
                          silence_type(), settings.silence, kFlags));
}

}  // namespace

Settings default_settings() {
    Settings settings;
    korvane_stream_defaults(&settings.config, 16000, 1);
    return settings;
}

guint install_settings(GObjectClass* object) {
    const Settings settings = default_settings();
    install_thresholds_and_times(object, settings.config);
    install_choices(object, settings);
    return kFree;
}

bool set_setting(Settings& settings, guint id, const GValue* value) {
    if (id >= kFree) {
        return false;
    }
    KorvaneStreamConfig& config = settings.config;
    if (id < kFirstTime) {
        config.*kThresholds[id - kFirstThreshold].member = g_value_get_float(value);
    } else if (id < kDecision) {
        config.*kTimes[id - kFirstTime].member = g_value_get_int(value);
    } else if (id == kDecision) {
        config.decision = g_value_get_enum(value);
    } else if (id == kRestoreLevel) {
        config.restore_level = g_value_get_boolean(value);
    } else if (id == kClean) {
        settings.clean = g_value_get_boolean(value) != FALSE;
    } else {
        settings.silence = static_cast<Silence>(g_value_get_enum(value));
    }
    return true;
}

bool get_setting(const Settings& settings, guint id, GValue* value) {
    if (id >= kFree) {
        return false;
    }
    const KorvaneStreamConfig& config = settings.config;
    if (id < kFirstTime) {
        g_value_set_float(value, config.*kThresholds[id - kFirstThreshold].member);
    } else if (id < kDecision) {
        g_value_set_int(value, config.*kTimes[id - kFirstTime].member);
    } else if (id == kDecision) {
        g_value_set_enum(value, config.decision);
    } else if (id == kRestoreLevel) {
        g_value_set_boolean(value, config.restore_level != 0);
    } else if (id == kClean) {
        g_value_set_boolean(value, settings.clean);
    } else {
        g_value_set_enum(value, settings.silence);
    }
    return true;
}

}  // namespace korvane
