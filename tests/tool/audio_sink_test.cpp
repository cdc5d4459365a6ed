#include "tools/audio/audio_sink.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sndfile.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <filesystem>

#include <cmath>
#include <csignal>
#include <functional>

#include "temporary_folder.h"
#include "tools/audio/sink_format.h"
#include "tools/files/temporary_file.h"

namespace korvane::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kWav = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kFlac = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;

SourceInfo source_info(int format, int rate, int channels) {
    SourceInfo info;
    info.sf_format = format;
    info.rate = info.input_rate = rate;
    info.channels = info.input_channels = channels;
    return info;
}

void write_all(AudioSink& sink, const std::vector<int16_t>& samples, int channels) {
    const auto frames = static_cast<int64_t>(samples.size()) / channels;
    for (int64_t done = 0, n = 1; done < frames; done += n, n = std::min(3 * n, frames - done)) {
        sink.write(samples.data() + done * channels, n);
    }
}

/** Runs `body` in a process of its own and returns how that ended, as waitpid does. */
int in_child(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

class AudioSinkTest : public testing::Test {
  protected:
    AudioSinkTest() {
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGXFSZ, SIG_IGN);
    }

    std::unique_ptr<AudioSink> open(const std::string& name, int format = kWav, int channels = 1) {
        return open_sink(folder_.path(name), format, 16000, channels);
    }

    TemporaryFolder folder_;
};

TEST_F(AudioSinkTest, WritesWhatItReads) {
    const std::vector<int16_t> samples = noise(300002, 1);
    for (const int format :
         {kWav, SF_FORMAT_WAV | SF_FORMAT_PCM_24, SF_FORMAT_WAV | SF_FORMAT_PCM_32,
          SF_FORMAT_WAV | SF_FORMAT_FLOAT, SF_FORMAT_WAV | SF_FORMAT_DOUBLE,
          SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, SF_FORMAT_NIST | SF_FORMAT_PCM_16,
          SF_FORMAT_RF64 | SF_FORMAT_PCM_16, SF_FORMAT_W64 | SF_FORMAT_PCM_24,
          SF_FORMAT_CAF | SF_FORMAT_PCM_16, kFlac, SF_FORMAT_FLAC | SF_FORMAT_PCM_24,
          SF_FORMAT_AIFF | SF_FORMAT_PCM_16, SF_FORMAT_AU | SF_FORMAT_FLOAT,
          SF_ENDIAN_BIG | kWav}) {
        for (const int channels : {1, 2}) {
            write_file(folder_.path("in"), format, 11025, channels, samples);
            const SourceInfo info = open_source(folder_.path("in"), {})->info();
            const int chosen = sink_format(info, folder_.path("out"));
            EXPECT_EQ(chosen, info.sf_format) << std::hex << format;
            const auto sink = open_sink(folder_.path("out"), chosen, 11025, channels);
            write_all(*sink, samples, channels);
            sink->commit();
            const auto source = open_source(folder_.path("out"), {});
            EXPECT_EQ(source->info().sf_format, info.sf_format);
            EXPECT_EQ(source->info().rate, 11025);
            EXPECT_EQ(read_all(*source), samples) << std::hex << format;
        }
    }
    open("empty")->commit();
    EXPECT_EQ(folder_.read("empty").size(), 44U);
}

TEST_F(AudioSinkTest, TakesTheFormatOfTheSourceOrOfTheName) {
    const int au_float = SF_FORMAT_AU | SF_FORMAT_FLOAT;
    const int mp3 = SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;
    const struct {
        int source, rate;
        const char* path;
        int format;
    } cases[] = {
        {SF_FORMAT_WAV | SF_FORMAT_PCM_24, 16000, "a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {au_float, 16000, "a.FLAC", kFlac},
        {au_float, 16000, "a.unknown", au_float},
        {au_float, 16000, "a.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
        {SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, 16000, "a.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24},
        {kFlac, 16000, "a.mp3", mp3},
        {mp3, 16000, "a.wav", kWav},
        {mp3, 16000, "a", mp3},
        {mp3, 16000, "a.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
        {kWav, 16000, "a.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {kWav, 44100, "a.opus", SF_FORMAT_OGG | SF_FORMAT_VORBIS},  // Opus knows five rates
        // These fill up their last block, or a last odd byte, so the length would not stay.
        {SF_FORMAT_WAV | SF_FORMAT_IMA_ADPCM, 16000, "a.wav", kWav},
        {SF_FORMAT_WAV | SF_FORMAT_GSM610, 8000, "a", kWav},
        {SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, 8000, "a", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
        {SF_FORMAT_CAF | SF_FORMAT_ALAC_24, 16000, "a.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16},
        // HTK stores the period in units of 100 ns.
        {SF_FORMAT_HTK | SF_FORMAT_PCM_16, 16000, "a", SF_FORMAT_HTK | SF_FORMAT_PCM_16},
        {SF_FORMAT_HTK | SF_FORMAT_PCM_16, 44100, "a", kWav},
        {0, 16000, "a", 0},
        {0, 16000, "a.wav", kWav},
        {kWav, 16000, "a.raw", 0},
        {kWav, 16000, "a.b/c", kWav},
        {kFlac, 16000, "-", 0}};
    for (const auto& [source, rate, path, format] : cases) {
        EXPECT_EQ(sink_format(source_info(source, rate, 1), path), format)
            << std::hex << source << ' ' << path;
    }
    const SourceInfo info = source_info(kWav, 44100, 1);
    for (const char* name : {"a.htk", "a.sd2"}) {
        EXPECT_THAT(
            failure_of([&] { open_sink(folder_.path(name), sink_format(info, name), 44100, 1); }),
            HasSubstr("cannot hold mono at 44100 Hz"));
    }
    EXPECT_FALSE(std::filesystem::exists("._"));  // SD2's other file
    EXPECT_THAT(folder_.names(), IsEmpty());
}

// Lossy formats keep length and place: the decoded noise resembles the written one most where it is.
TEST_F(AudioSinkTest, LossyFormatsKeepLengthAndAlignment) {
    std::vector<int16_t> samples = noise(50021, 2);
    for (std::size_t i = samples.size() - 1; i >= 8; --i) {  // what codecs keep lies below
        int sum = 0;
        for (std::size_t k = 0; k < 8; ++k) {
            sum += samples[i - k];
        }
        samples[i] = static_cast<int16_t>(sum / 8);
    }
    for (const char* name : {"a.ogg", "a.opus", "a.mp3"}) {
        const int format = sink_format(source_info(kWav, 16000, 1), name);
        const auto sink = open(name, format);
        write_all(*sink, samples, 1);
        sink->commit();
        const std::vector<int16_t> back = read_all(folder_.path(name));
        ASSERT_EQ(back.size(), samples.size()) << name;
        double best = 0;
        int64_t at = -1000;
        for (int64_t lag = -50; lag <= 50; ++lag) {
            double product = 0;
            for (int64_t i = 1000; i < 40000; ++i) {
                product += double(samples[static_cast<std::size_t>(i)]) *
                           back[static_cast<std::size_t>(i + lag)];
            }
            if (product > best) {
                best = product;
                at = lag;
            }
        }
        EXPECT_EQ(at, 0) << name;
    }
}

TEST_F(AudioSinkTest, IsReadBackBeforeItGetsItsName) {
    const auto sink = open("a.wav");
    write_all(*sink, noise(131072, 5), 1);  // handed over to the last sample
    std::filesystem::resize_file(folder_.path(folder_.names()[0]), 100);
    EXPECT_THAT(failure_of([&] { sink->commit(); }), HasSubstr("could not be written completely"));
    EXPECT_FALSE(std::filesystem::exists(folder_.path("a.wav")));
}

TEST_F(AudioSinkTest, CannotBeWhereTheUserMayNotWrite) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become someone else";
    }
    folder_.write("a.wav", "kept");
    chmod(folder_.path().c_str(), 0755);
    EXPECT_EQ(in_child([&] {
                  const bool refused =
                      setuid(65534) == 0 &&
                      failure_of([&] { open("b.wav"); }).ends_with("Permission denied") &&
                      failure_of([&] { open("a.wav"); }).ends_with("Permission denied");
                  _exit(refused ? 0 : 1);
              }),
              0);
}

TEST_F(AudioSinkTest, FailsWhereTheDiskIsFull) {
    const std::vector<int16_t> samples = noise(400000, 4);
    folder_.write("a", "kept");
    for (const int format :
         {0, kWav, SF_FORMAT_WAV | SF_FORMAT_FLOAT, kFlac, SF_FORMAT_W64 | SF_FORMAT_PCM_24,
          SF_FORMAT_OGG | SF_FORMAT_VORBIS, SF_FORMAT_OGG | SF_FORMAT_OPUS,
          SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III}) {
        sink_format(source_info(format, 16000, 1),
                    "a");                              // tries the format before the disk is full
        for (const int64_t count : {30000, 400000}) {  // at the end, and in the middle
            EXPECT_EQ(in_child([&] {
                          const rlimit limit = {2000, 2000};
                          setrlimit(RLIMIT_FSIZE, &limit);
                          const std::string failure = failure_of([&] {
                              const auto sink = open("a", format);
                              sink->write(samples.data(), count);
                              sink->commit();
                          });
                          _exit(failure == folder_.path("a") + ": File too large" ? 0 : 1);
                      }),
                      0)
                << std::hex << format;
            EXPECT_THAT(folder_.names(), ElementsAre("a"));
            ASSERT_TRUE(folder_.read("a") == "kept") << std::hex << format;
        }
    }
}

TEST_F(AudioSinkTest, RefusesWhatTheSizeFieldsCannotCount) {
    const int16_t sample = 0;  // refused before it is looked at
    const struct {
        int format;
        int64_t bytes;
    } cases[] = {{kWav, 2},
                 {SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 2},
                 {SF_FORMAT_AU | SF_FORMAT_PCM_S8, 1},
                 {SF_FORMAT_AU | SF_FORMAT_ULAW, 1},
                 {SF_FORMAT_AU | SF_FORMAT_ALAW, 1},
                 {SF_FORMAT_WAV | SF_FORMAT_PCM_24, 3},
                 {SF_FORMAT_WAV | SF_FORMAT_FLOAT, 4},
                 {SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 8}};
    for (const auto& c : cases) {
        const int64_t frames = (int64_t{1} << 32) / 2 / c.bytes;
        EXPECT_THAT(failure_of([&] { open("a", c.format, 2)->write(&sample, frames); }),
                    HasSubstr("4 GiB"))
            << std::hex << c.format;
    }
    EXPECT_THAT(failure_of([&] { open("a", SF_FORMAT_WAV | SF_FORMAT_GSM610, 2); }),
                HasSubstr("cannot hold 2 channels"));
}

TEST_F(AudioSinkTest, SignalsLeaveNoTemporaryFileButThoseOfOtherProcesses) {
    const auto mine = open("mine.wav");
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        const int status = in_child([&] {
            remove_temporary_files_on_signals();
            const auto first = open("a.wav");
            auto gone = open("gone.wav");  // from between the others
            const auto second = open("b.wav");
            gone.reset();
            if (folder_.names().size() == 3) {
                raise(number);
            }
        });
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << status;
        EXPECT_EQ(folder_.names().size(), 1U);
    }
    EXPECT_EQ(in_child([&] {
                  std::signal(SIGHUP, SIG_IGN);  // nohup
                  remove_temporary_files_on_signals();
                  raise(SIGHUP);
              }),
              0);
    mine->commit();
    EXPECT_THAT(folder_.names(), ElementsAre("mine.wav"));
}

}  // namespace
}  // namespace korvane::tool
