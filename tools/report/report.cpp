#include "tools/report/report.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "tools/report/audio_clip.h"
#include "tools/report/envelope.h"
#include "tools/report/packing.h"
#include "tools/report/page_text.h"
#include "tools/report/spectrogram.h"

namespace korvane::tool {

namespace {

using Json = nlohmann::ordered_json;
using report::AudioClip;
using report::Envelope;
using report::Spectrogram;

// What bounds the page, however long the recording is. An hour at 16 kHz then has a waveform point
// every 32 ms and a spectrum every half second.
constexpr int64_t kEnvelopeBuckets = int64_t{1} << 17;
constexpr int64_t kSpectrogramCells = int64_t{1} << 21;
// Audio that a browser loads in one go; and the lowest rate at which all of them play FLAC.
constexpr int64_t kAudioBytes = int64_t{64} << 20;
constexpr int kFlacLowestRate = 3000;

constexpr double kLevelSteps = 100;   // of the embedded level in a dB
constexpr double kScoreSteps = 1000;  // of the embedded score in 1

/** The recording before or after the suppressor. */
struct Track {
    explicit Track(const SourceInfo& source)
        : channels(source.channels),
          waveform(kEnvelopeBuckets),
          spectrogram(source.rate, source.channels, kSpectrogramCells) {}

    void add(const int16_t* samples, int64_t n) {
        waveform.add(samples, n, channels);
        spectrogram.add(samples, n);
        if (audio) {
            audio->add(samples, n);
        }
    }

    int channels;
    Envelope waveform;
    Spectrogram spectrogram;
    std::optional<AudioClip> audio;
};

Json json_of(const SourceInfo& source) {
    return {{"name", source.name},
            {"rate", source.rate},
            {"channels", source.channels},
            {"input_rate", source.input_rate},
            {"input_channels", source.input_channels},
            {"bit_exact", source.bit_exact}};
}

/** Of the decisions; their delay is how far before the input the first frame begins. */
Json json_of(const ResultHeader& header) {
    const segments::Timing& timing = header.timing;
    const bool before = header.stream.decision == KORVANE_DECISION_DETECTOR;
    return {{"frame", timing.frame},
            {"delay", before ? timing.delay : 0},
            {"onset", timing.onset},
            {"hangover", timing.hangover}};
}

Json json_of(const segments::Rules& rules) {
    return {{"align", align_name(rules.align)}, {"min_gap", rules.min_gap},
            {"min_speech", rules.min_speech},   {"pad_start", rules.pad_start},
            {"pad_end", rules.pad_end},         {"max_speech", rules.max_speech}};
}

Json json_of(const std::vector<segments::Segment>& list) {
    Json array = Json::array();
    for (const segments::Segment& segment : list) {
        array.push_back(Json::array({segment.start, segment.end, segment.open}));
    }
    return array;
}

Json json_of(const Spectrogram& spectrogram) {
    return {
        {"rows", spectrogram.rows()},      {"columns", spectrogram.columns()},
        {"hop", spectrogram.hop()},        {"window", spectrogram.window()},
        {"low", spectrogram.frequency(0)}, {"high", spectrogram.frequency(spectrogram.rows() - 1)},
        {"floor", Spectrogram::kFloor},    {"step", Spectrogram::kStep}};
}

/** A block of data in the page: text that is neither shown nor run. It must not hold "<", which
 * could end the block. */
void append_block(std::string& page, std::string_view id, std::string_view text) {
    page += "<script type=\"text/plain\" id=\"";
    page += id;
    page += "\">";
    page += text;
    page += "</script>\n";
}

void append_packed(std::string& page, std::string_view id, const std::vector<uint8_t>& bytes) {
    append_block(page, id, report::base64(report::deflated(bytes)));
}

/** What `korvane-vad detect` writes, for the page to save: [name, extension, text] of each format. */
std::string results_in_all_formats(const Judged& judged) {
    Json results = Json::array();
    const std::vector<std::string>& names = result_format_names();
    for (std::size_t i = 0; i < names.size(); ++i) {
        const auto format = static_cast<ResultFormat>(i);
        results.push_back({names[i], extension_of(format),
                           file_prologue(format) + whole_result(format, false, {judged}) +
                               file_epilogue(format)});
    }
    return results.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/** JSON in which no "<" is left; all of them are inside strings. Names of files need not be UTF-8;
 * what is not becomes U+FFFD. */
std::string safe_text(const Json& json) {
    std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos;) {
        text.replace(at, 1, "\\u003c");
    }
    return text;
}

}  // namespace

struct Report::State {
    State(const ResultHeader& result_header, EmbeddedAudio format)
        : header(result_header), audio(format), before(header.source), after(header.source) {
        const SourceInfo& source = header.source;
        if (audio == EmbeddedAudio::kNone) {
            no_audio = "The page was made without audio.";
        } else if (audio == EmbeddedAudio::kFlac && source.rate < kFlacLowestRate) {
            no_audio = missing = "Browsers do not play FLAC below 3000 Hz; the audio is left out.";
        } else {
            std::optional<double> seconds;
            if (source.length) {
                seconds = static_cast<double>(*source.length) / source.rate;
            }
            for (Track* track : {&before, &after}) {
                track->audio.emplace(audio, source.rate, source.channels, seconds);
            }
        }
    }

    void check_audio() {
        if (before.audio && before.audio->size() + after.audio->size() > kAudioBytes) {
            no_audio = missing = "The recording's audio takes more than 64 MiB; it is left out.";
            before.audio.reset();
            after.audio.reset();
        }
    }

    Json facts(const StreamTotals& totals, const std::vector<segments::Segment>& list) const {
        return {{"tool_version", KORVANE_VERSION},
                {"library_version", library_name(header.stream)},
                {"source", json_of(header.source)},
                {"decision", decision_name(header.stream.decision)},
                {"delay", header.delay},
                {"timing", json_of(header)},
                {"rules", json_of(header.rules)},
                {"length", totals.length},
                {"frames", totals.frames},
                {"sha256", totals.sha256},
                {"enter", thresholds_of(header.stream).enter},
                {"stay", thresholds_of(header.stream).stay},
                {"level_steps", kLevelSteps},
                {"score_steps", kScoreSteps},
                {"level_bucket", level.bucket()},
                {"waveform_bucket", before.waveform.bucket()},
                {"spectrogram", json_of(before.spectrogram)},
                {"flag_changes", flag_changes},
                {"no_audio", no_audio},
                {"audio_type", audio == EmbeddedAudio::kFlac ? "audio/flac" : "audio/mpeg"},
                {"segments", json_of(list)}};
    }

    ResultHeader header;
    EmbeddedAudio audio;
    Track before;
    Track after;
    Envelope level{kEnvelopeBuckets};
    Envelope score{kEnvelopeBuckets};
    std::vector<int64_t> flag_changes;  // frames from which on the answer is another one
    bool speech = false;
    int64_t read = 0;      // sample frames
    std::string no_audio;  // why there is none; empty where there is
    std::string missing;   // the same where it was wanted
};

Report::Report(const ResultHeader& header, EmbeddedAudio audio)
    : state_(std::make_unique<State>(header, audio)) {}

Report::~Report() = default;

bool Report::available() { return true; }

std::string Report::missing_audio() const { return state_->missing; }

void Report::add_input(const int16_t* samples, int64_t n) {
    state_->read += n;
    state_->before.add(samples, n);
    state_->check_audio();
}

void Report::add_cleaned(const int16_t* samples, int64_t n) {
    state_->after.add(samples, n);
    state_->check_audio();
}

void Report::add(const Frame& frame) {
    State& state = *state_;
    const auto level = static_cast<int16_t>(std::lround(kLevelSteps * frame.level));
    state.level.add(&level, 1, 1);
    const auto score = static_cast<int16_t>(std::lround(kScoreSteps * frame.score));
    state.score.add(&score, 1, 1);
    if (frame.speech != state.speech) {
        state.speech = frame.speech;
        state.flag_changes.push_back(frame.index);
    }
}

std::string Report::page(const StreamTotals& totals, const std::vector<segments::Segment>& list) {
    State& state = *state_;
    std::string page(report::kPageHead);
    for (const auto& [name, track] :
         {std::pair<std::string, Track*>{"before", &state.before}, {"after", &state.after}}) {
        track->spectrogram.finish();
        append_packed(page, "waveform-" + name, track->waveform.bytes());
        append_packed(page, "spectrogram-" + name, track->spectrogram.bytes());
        if (track->audio) {
            append_block(page, "audio-" + name, report::base64(track->audio->finish()));
        }
    }
    append_packed(page, "level", state.level.bytes());
    append_packed(page, "score", state.score.bytes());
    const std::string results = results_in_all_formats({state.header, totals, list});
    append_packed(page, "results", {results.begin(), results.end()});
    append_block(page, "facts", safe_text(state.facts(totals, list)));
    page += report::kPageTail;
    return page;
}

}  // namespace korvane::tool
