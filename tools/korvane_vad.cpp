/**
 * korvane-vad RECORDING [--cleaned OUT.wav]
 *
 * Runs the detector over a recording, prints the speech segments and, if asked, writes the cleaned
 * recording. docs/timeline.md says how the times come about.
 */
#include "korvane_vad.h"

#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <string>

#include "cleaned_file.h"
#include "failure.h"
#include "recording.h"
#include "speech_segments.h"

// The library hands its log lines to this function of its host. They would only blur the messages
// of a command, so they end here.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" __attribute__((visibility("default"), format(printf, 3, 4))) int __android_log_print(
    int /*priority*/, const char* /*tag*/, const char* /*format*/, ...) {
    return 0;
}

namespace {

using korvane::tool::CleanedFile;
using korvane::tool::Failure;
using korvane::tool::Recording;
using korvane::tool::Segment;
using korvane::tool::SpeechSegments;

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

constexpr const char* kUsage =
    "usage: korvane-vad RECORDING [--cleaned OUT.wav]\n"
    "       korvane-vad --help | --version\n";

constexpr const char* kHelp =
    "\n"
    "Finds the speech in a recording (WAV, FLAC, Ogg and what else libsndfile reads; mono or "
    "stereo,\n"
    "1 to 49999 Hz) and prints one line for each segment: start, end and duration in seconds.\n"
    "\n"
    "  -c, --cleaned OUT.wav  also write the recording with its noise suppressed, as 16-bit WAV, "
    "as\n"
    "                         long as the recording and aligned with it; may be RECORDING itself\n"
    "  -h, --help             print this and exit\n"
    "  -V, --version          print the version and exit\n"
    "\n"
    "Exit status: 0 done, 1 a file could not be read or written, 2 wrong usage.\n";

/** One stream through the detector, in frames of fixed length. */
class Detector {
  public:
    Detector(int rate, int channels, int frame) {
        VoiceActivityDetectionInit();
        VoiceActivityDetectionChannelModeConfig(&handle_, channels);
        VoiceActivityDetectionSamplingRateConfig(&handle_, static_cast<uint32_t>(rate));
        VoiceActivityDetectionFrameLengthConfig(&handle_, static_cast<uint32_t>(frame * channels));
    }

    /** @param samples  a frame, interleaved; replaced by the cleaned one. Returns true on speech.
     */
    bool process(int16_t* samples) {
        VoiceActivityDetectionInOutConfig(&handle_, samples);
        const bool speech = VoiceActivityDetectionExe(&handle_) != 0;
        if (handle_.channel_mode == 1) {  // stereo comes back in place
            std::copy_n(handle_.ch0_work, handle_.frame_length, samples);
        }
        return speech;
    }

  private:
    VadHandle handle_{};
};

/** Processes the whole recording; the cleaned samples go to `cleaned` unless it is null. */
std::vector<Segment> process(Recording& recording, CleanedFile* cleaned) {
    const int channels = recording.channels();
    const int frame = korvane::tool::frame_length(recording.rate());
    const int64_t delay = korvane::tool::path_delay(recording.rate());
    Detector detector(recording.rate(), channels, frame);
    SpeechSegments segments(frame, delay);
    std::vector<int16_t> samples(static_cast<std::size_t>(frame * channels));

    // Zeros follow the recording until its last sample has come back.
    int64_t length = 0;
    int64_t position = 0;  // in the stream, of the frame's first sample
    for (bool ended = false; !ended || position < length + delay; position += frame) {
        std::fill(samples.begin(), samples.end(), int16_t{0});
        if (!ended) {
            const int64_t count = recording.read(samples.data(), frame);
            length += count;
            ended = count < frame;
        }
        segments.add(detector.process(samples.data()));
        if (cleaned != nullptr) {
            // The frame holds the cleaned samples from position - delay on.
            const int64_t begin = std::clamp<int64_t>(delay - position, 0, frame);
            const int64_t end = std::clamp<int64_t>(length + delay - position, begin, frame);
            cleaned->write(samples.data() + begin * channels, end - begin);
        }
    }
    return segments.within(length);
}

/** Checks at last whether everything printed has arrived. */
void flush_stdout() {
    errno = 0;
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw Failure("standard output", errno != 0 ? std::strerror(errno) : "write error");
    }
}

void print(const std::vector<Segment>& segments, int rate) {
    if (segments.empty()) {
        std::puts("no speech");
    } else {
        std::printf("%12s %12s %12s\n", "start", "end", "duration");
    }
    for (const Segment& segment : segments) {
        using korvane::tool::seconds;
        std::printf("%12s %12s %12s\n", seconds(segment.begin, rate).c_str(),
                    seconds(segment.end, rate).c_str(),
                    seconds(segment.end - segment.begin, rate).c_str());
    }
    flush_stdout();
}

void run(const std::string& path, const std::optional<std::string>& cleaned_path) {
    Recording recording(path);
    std::optional<CleanedFile> cleaned;
    if (cleaned_path) {
        cleaned.emplace(*cleaned_path, recording.rate(), recording.channels());
    }
    const std::vector<Segment> segments = process(recording, cleaned ? &*cleaned : nullptr);
    if (cleaned) {
        cleaned->finish();
    }
    print(segments, recording.rate());
    if (cleaned) {
        cleaned->commit();
    }
}

/** Without the three standard streams a file opened later would take their place. */
void check_standard_streams() {
    for (const int descriptor : {STDIN_FILENO, STDERR_FILENO, STDOUT_FILENO}) {
        if (fcntl(descriptor, F_GETFD) != -1) {
            continue;
        }
        if (descriptor == STDOUT_FILENO) {
            throw Failure("standard output", std::strerror(errno));
        }
        const int null = open("/dev/null", O_RDWR);
        if (null != descriptor) {
            dup2(null, descriptor);
            close(null);
        }
    }
}

int usage_error(const char* message) {
    std::fprintf(stderr, "korvane-vad: %s\n%s", message, kUsage);
    return kExitUsage;
}

int run_command(int argc, char** argv) {
    check_standard_streams();
    static char name[] = "korvane-vad";  // getopt_long's messages begin with it, like ours
    if (argc > 0) {
        argv[0] = name;
    }
    static const std::array<option, 4> options = {{{"cleaned", required_argument, nullptr, 'c'},
                                                   {"help", no_argument, nullptr, 'h'},
                                                   {"version", no_argument, nullptr, 'V'},
                                                   {nullptr, 0, nullptr, 0}}};
    std::optional<std::string> cleaned_path;
    for (int letter; (letter = getopt_long(argc, argv, "c:hV", options.data(), nullptr)) != -1;) {
        switch (letter) {
            case 'c':
                cleaned_path = optarg;
                break;
            case 'h':
                std::printf("%s%s", kUsage, kHelp);
                flush_stdout();
                return 0;
            case 'V':
                std::puts(VoiceActivityDetectionVersion());
                flush_stdout();
                return 0;
            default:  // getopt_long has said what is wrong
                std::fputs(kUsage, stderr);
                return kExitUsage;
        }
    }
    if (cleaned_path && cleaned_path->empty()) {
        return usage_error("--cleaned needs a file name");
    }
    if (argc - optind != 1) {
        return usage_error(optind >= argc ? "no recording given" : "more than one recording given");
    }
    run(argv[optind], cleaned_path);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // A closed pipe and a file-size limit are to be errors like others, not sudden deaths.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return run_command(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "korvane-vad: %s\n", error.what());
        return kExitFailure;
    }
}
