#include "tools/audio/audio_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <limits>
#include <numbers>
#include <thread>
#include <utility>

#include "temporary_folder.h"
#include "tools/audio/resampled_source.h"
#include "tools/audio/sample_conversion.h"

namespace korvane::tool {
namespace {

using testing::HasSubstr;

constexpr int kWav = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

TEST(SampleConversion, RoundsToNearestAndClips) {
    const double lsb = 1.0 / 32768.0;
    const std::pair<double, int> cases[] = {{0.0, 0},
                                            {-123.49 * lsb, -123},
                                            {-123.51 * lsb, -124},
                                            {0.5 * lsb, 0},
                                            {1.5 * lsb, 2},
                                            {32767.4 * lsb, 32767},
                                            {1.0, 32767},
                                            {-1.0, -32768},
                                            {std::numeric_limits<double>::infinity(), 32767},
                                            {-std::numeric_limits<double>::max(), -32768},
                                            {std::nan(""), 0}};
    for (const auto& [value, sample] : cases) {
        EXPECT_EQ(sample_from_float(value), sample) << value;
    }
}

static_assert(rounded_mean(1, 2) == 0 && rounded_mean(3, 2) == 2 && rounded_mean(-1, 2) == 0 &&
              rounded_mean(-3, 2) == -2 && rounded_mean(-5, 3) == -2 && rounded_mean(4, 3) == 1 &&
              rounded_mean(7 * -32768, 7) == -32768 && rounded_mean(2 * 32767, 2) == 32767);

/** A named pipe that a thread writes to. */
class Pipe {
  public:
    Pipe(const TemporaryFolder& folder, const std::string& bytes) : path_(folder.path("pipe")) {
        EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0);
        writer_ = std::thread([this, bytes] { std::ofstream(path_, std::ios::binary) << bytes; });
    }
    ~Pipe() {
        writer_.join();
        unlink(path_.c_str());
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
    std::thread writer_;
};

/** Bytes that are no sound file. */
std::string noise_bytes(std::size_t count) { return raw_bytes(noise(count / 2, 14), false); }

class AudioSourceTest : public testing::Test {
  protected:
    AudioSourceTest() { std::signal(SIGPIPE, SIG_IGN); }
    TemporaryFolder folder_;
};

// Every format that holds the samples without loss must give the same 16 bits, from a file and from
// a pipe. What a format holds beyond them must be dropped, not rounded; what it lacks is zero.
TEST_F(AudioSourceTest, GivesTheSame16BitsFromEveryLosslessFormat) {
    std::mt19937 random(20240607);
    std::vector<int32_t> full(360002);
    std::generate(full.begin(), full.end(), [&] { return static_cast<int32_t>(random()); });
    full[0] = INT32_MIN;
    full[1] = INT32_MAX;
    const struct {
        int format, bits;
    } cases[] = {{kWav, 16},
                 {SF_FORMAT_WAV | SF_FORMAT_PCM_24, 32},
                 {SF_FORMAT_WAV | SF_FORMAT_PCM_32, 32},
                 {SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 32},
                 {SF_FORMAT_AU | SF_FORMAT_PCM_16, 16},
                 {SF_FORMAT_W64 | SF_FORMAT_PCM_16, 16},
                 {SF_FORMAT_RF64 | SF_FORMAT_PCM_16, 16},
                 {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 16},
                 {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 32},
                 {SF_FORMAT_CAF | SF_FORMAT_ALAC_16, 16},
                 {SF_FORMAT_WAV | SF_FORMAT_FLOAT, 16},
                 {SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 16},
                 {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 8},
                 {SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, 8},
                 {SF_FORMAT_FLAC | SF_FORMAT_PCM_S8, 8}};
    for (const auto& [format, bits] : cases) {
        std::vector<int32_t> samples;
        std::vector<int16_t> expected;
        for (const int32_t sample : full) {
            samples.push_back(sample >> (32 - bits) << (32 - bits));
            expected.push_back(static_cast<int16_t>(samples.back() >> 16));
        }
        for (const int channels : {1, 2}) {
            write_file(folder_.path("x"), format, 44100, channels, samples);
            const auto source = open_source(folder_.path("x"), {});
            EXPECT_EQ(source->info().length, 360002 / channels);
            EXPECT_TRUE(source->info().bit_exact);
            EXPECT_EQ(read_all(*source), expected) << std::hex << format << ' ' << channels;
            const Pipe pipe(folder_, folder_.read("x"));
            EXPECT_EQ(read_all(pipe.path()), expected) << "pipe " << std::hex << format;
        }
    }
}

TEST_F(AudioSourceTest, SaysWhichDecodersAreNotBitExact) {
    const struct {
        int format;
        bool exact;
    } cases[] = {{SF_FORMAT_OGG | SF_FORMAT_VORBIS, false},
                 {SF_FORMAT_OGG | SF_FORMAT_OPUS, false},
                 {SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, false},
                 {SF_FORMAT_WAV | SF_FORMAT_ULAW, true},
                 {SF_FORMAT_WAV | SF_FORMAT_MS_ADPCM, true},
                 {SF_FORMAT_WAV | SF_FORMAT_GSM610, true}};
    for (const auto& [format, exact] : cases) {
        write_file(folder_.path("x"), format, 16000, 1, noise(20000, 1));
        EXPECT_EQ(open_source(folder_.path("x"), {})->info().bit_exact, exact)
            << std::hex << format;
    }
}

TEST_F(AudioSourceTest, ReadsWavWithoutATrueLengthToItsEnd) {
    const std::vector<int16_t> samples = noise(100000, 10);
    std::vector<int32_t> wide(samples.begin(), samples.end());
    std::ranges::for_each(wide, [](int32_t& sample) { sample *= 65536; });
    const int formats[] = {kWav, SF_FORMAT_WAVEX | SF_FORMAT_FLOAT,
                           SF_FORMAT_WAV | SF_FORMAT_PCM_24, SF_FORMAT_W64 | SF_FORMAT_PCM_16};
    for (const int format : formats) {
        const bool wave64 = (format & SF_FORMAT_TYPEMASK) == SF_FORMAT_W64;
        write_file(folder_.path("x"), format, 16000, 2, wide);
        std::string bytes = folder_.read("x");
        const std::size_t at = bytes.find("data") + (wave64 ? 16 : 4);
        for (const uint32_t length : {0U, 0xFFFFFFFFU, 0x7FFFF000U}) {
            for (std::size_t i = 0; i < 4; ++i) {  // of W64 the upper half
                bytes[at + (wave64 ? 4 : 0) + i] = static_cast<char>(length >> (8 * i));
            }
            if (wave64) {
                bytes.replace(at, 4, 4, '\0');
            }
            EXPECT_EQ(read_all(folder_.write("x", bytes)), samples)
                << std::hex << format << ' ' << length;
            const Pipe pipe(folder_, bytes);
            EXPECT_EQ(read_all(pipe.path()), samples)
                << "pipe " << std::hex << format << ' ' << length;
        }
    }
    const struct {
        int format;
        const char* mark;
        std::size_t behind;
        std::string length;
    } others[] = {
        {SF_FORMAT_RF64 | SF_FORMAT_PCM_16, "ds64", 16, std::string(8, '\0')},
        {SF_FORMAT_AU | SF_FORMAT_PCM_24, ".snd", 8, std::string(4, '\0')},
        {SF_FORMAT_CAF | SF_FORMAT_PCM_32, "data", 4, std::string(8, '\xFF')},
        {SF_FORMAT_CAF | SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE, "data", 4, std::string(8, '\xFF')}};
    for (const auto& [format, mark, behind, length] : others) {
        write_file(folder_.path("x"), format, 16000, 2, wide);
        std::string bytes = folder_.read("x");
        bytes.replace(bytes.find(mark) + behind, length.size(), length);
        EXPECT_EQ(read_all(folder_.write("x", bytes)), samples) << mark;
        const Pipe pipe(folder_, bytes);
        EXPECT_EQ(read_all(pipe.path()), samples) << "pipe " << mark;
    }
    // No sample at all, and a chunk behind that.
    write_file(folder_.path("x"), kWav, 16000, 1, samples);
    std::string bytes = folder_.read("x");
    folder_.write("x", bytes.substr(0, 40) + std::string("\0\0\0\0LIST\4\0\0\0INFO", 16));
    EXPECT_THAT(failure_of([&] { read_all(folder_.path("x")); }), HasSubstr("holds no samples"));
    folder_.write("x", bytes.replace(40, 4, 4, '\xFF'));
    std::filesystem::resize_file(folder_.path("x"), 4'600'000'044);
    EXPECT_EQ(open_source(folder_.path("x"), {})->info().length, 2'300'000'000);
}

TEST_F(AudioSourceTest, ReadsAllLinksOfAChain) {
    const int vorbis = SF_FORMAT_OGG | SF_FORMAT_VORBIS;
    write_file(folder_.path("a"), vorbis, 16000, 1, noise(100000, 11));
    write_file(folder_.path("b"), SF_FORMAT_OGG | SF_FORMAT_OPUS, 16000, 1, noise(50000, 12));
    write_file(folder_.path("c"), vorbis, 8000, 1, noise(50000, 13));
    std::vector<int16_t> expected;
    for (const char* name : {"a", "b", "a"}) {
        std::ranges::copy(read_all(folder_.path(name)), std::back_inserter(expected));
    }
    const std::string chain = folder_.read("a") + folder_.read("b") + folder_.read("a");
    const std::string first = folder_.read("a");
    for (const std::string& between :
         {std::string(), std::string(70000, 'O'), "OggS" + noise_bytes(300)}) {
        EXPECT_TRUE(read_all(folder_.write(
                        "x", first + between + folder_.read("b") + between + first)) == expected);
    }
    std::vector<int16_t> before;
    const auto fails = [&](const std::string& path, const char* reason) {
        const auto source = open_source(path, {});
        before.clear();
        EXPECT_THAT(failure_of([&] { read_all(*source, &before); }), HasSubstr(reason));
        EXPECT_EQ(before.size(), 100000U);
        EXPECT_FALSE(source->info().length);
    };
    fails(folder_.write("x", folder_.read("a") + folder_.read("c")),
          "part 2 of the chain: has another rate");
    const Pipe pipe(folder_, chain);
    fails(pipe.path(), "a chain, of which only a file");
    // A page that is missing or wrong would shift what is behind it; a link's last page leaves no more than a gap.
    std::string damaged = chain;
    damaged[first.size() / 2] ^= 1;
    EXPECT_THAT(
        failure_of([&] { read_all(*open_source(folder_.write("x", damaged), {}), &before); }),
        HasSubstr("pages are missing or wrong"));
    EXPECT_LT(before.size(), 100000U);
    EXPECT_TRUE(std::equal(before.begin(), before.end(), expected.begin()));
    const std::string unfinished = first.substr(0, first.rfind("OggS")) + folder_.read("b");
    before.clear();
    EXPECT_THAT(
        failure_of([&] { read_all(*open_source(folder_.write("x", unfinished), {}), &before); }),
        HasSubstr("part 1 of the chain: its last page is missing"));
    EXPECT_GT(before.size(), 130000U);
}

TEST_F(AudioSourceTest, TakesACountOfMpegFramesForAPromiseAndAGuessForNone) {
    std::vector<int16_t> samples = noise(20000, 9);
    samples.resize(300000);  // silence, whose frames are shorter
    write_file(folder_.path("counted"), SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 16000, 1,
               samples);
    const std::string counted = folder_.read("counted");
    EXPECT_EQ(read_all(folder_.path("counted")).size(), samples.size());
    // The count is in a frame of its own, the first.
    const std::string guessed = counted.substr(counted.find(counted.substr(0, 2), 2));
    // Before it may stand anything, as long as it is short, and tags, with pictures that look like frames.
    const std::string tag = std::string("ID3\4\0\0\0\1\x7F\x7F", 10) + std::string(32767, '\xFF');
    for (const std::string& before : {std::string(), std::string(4, '\0'), tag + tag}) {
        const auto source = open_source(folder_.write("guessed.mp3", before + guessed), {});
        EXPECT_FALSE(source->info().length);
        EXPECT_NEAR(static_cast<double>(read_all(*source).size()), 301000, 1000);
    }
    // The count of the first of two files leaves out the second.
    const std::string old_tag = "TAG" + std::string(125, ' ');
    for (const std::string& between : {std::string(), old_tag + tag}) {
        EXPECT_NEAR(
            static_cast<double>(read_all(folder_.write("two", counted + between + counted)).size()),
            603000, 3000);
    }
    // Behind it, too.
    const std::vector<int16_t> whole = read_all(folder_.write("guessed.mp3", guessed));
    for (const std::string& behind : {std::string(5000, '\0'), noise_bytes(5000)}) {
        EXPECT_EQ(read_all(folder_.write("guessed.mp3", guessed + behind)), whole);
    }
    write_file(folder_.path("other"), SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 22050, 1, samples);
    std::string damaged = guessed;
    damaged.replace(guessed.find(guessed.substr(0, 2), 15000), 4, "spam");
    const std::string half = counted.substr(0, counted.size() / 2);
    for (const auto& [bytes, reason] :
         {std::pair{half, "truncated: "},
          {guessed.substr(0, guessed.size() / 2), "damaged, or cut within a frame"},
          {counted + folder_.read("other"), "part 2 of the chain: has another rate"},
          {damaged, "damaged: the decoder has left out"}}) {
        const auto source = open_source(folder_.write("cut", bytes), {});
        std::vector<int16_t> before;
        EXPECT_THAT(failure_of([&] { read_all(*source, &before); }), HasSubstr(reason));
        EXPECT_GT(before.size(), 65536U);
    }
}

TEST_F(AudioSourceTest, ChoosesAndMixesChannels) {
    constexpr std::size_t kFrames = 70000;
    const std::vector<int16_t> six = noise(6 * kFrames, 2);
    write_file(folder_.path("six.wav"), kWav, 16000, 6, six);
    SourceOptions options;
    options.channels = {6, 2};
    std::vector<int16_t> expected;
    for (std::size_t i = 0; i < kFrames; ++i) {
        expected.push_back(six[6 * i + 5]);
        expected.push_back(six[6 * i + 1]);
    }
    EXPECT_EQ(read_all(folder_.path("six.wav"), options), expected);
    for (const std::vector<int>& chosen : {std::vector<int>{}, {1, 2}, {1, 3, 6}}) {
        options.channels = chosen;
        options.downmix = true;
        const std::vector<int16_t> mixed = read_all(folder_.path("six.wav"), options);
        ASSERT_EQ(mixed.size(), kFrames);
        const std::vector<int> used = chosen.empty() ? std::vector<int>{1, 2, 3, 4, 5, 6} : chosen;
        for (std::size_t i = 0; i < kFrames; ++i) {
            double sum = 0;
            for (const int channel : used) {
                sum += six[6 * i + static_cast<std::size_t>(channel) - 1];
            }
            // sum / 6 and sum / 3 that lie halfway are exact in binary; the rest is far from it.
            ASSERT_EQ(mixed[i], std::nearbyint(sum / static_cast<double>(used.size()))) << i;
        }
    }
    options.downmix = false;
    EXPECT_THAT(failure_of([&] { open_source(folder_.path("six.wav"), options); }),
                HasSubstr("--downmix"));
    EXPECT_THAT(failure_of([&] { open_source(folder_.path("six.wav"), {}); }),
                HasSubstr("6 channels; choose one or two with --channels 1,2"));
    for (const int channel : {0, -1, 7}) {
        options.channels = {1, channel};
        EXPECT_THAT(failure_of([&] { open_source(folder_.path("six.wav"), options); }),
                    HasSubstr("no channel " + std::to_string(channel) + "; there are 6"));
    }
    write_file(folder_.path("one.wav"), kWav, 16000, 1, six);
    EXPECT_THAT(failure_of([&] { open_source(folder_.path("one.wav"), options); }),
                HasSubstr("no channel 7; there is 1 channel, counted from 1"));
}

TEST_F(AudioSourceTest, ReadsRawSamplesInEveryLayout) {
    constexpr std::size_t kFrames = 150001;
    const std::vector<int16_t> samples = noise(3 * kFrames, 3);
    std::vector<int16_t> planar;
    for (std::size_t c = 0; c < 3; ++c) {
        for (std::size_t i = 0; i < kFrames; ++i) {
            planar.push_back(samples[3 * i + c]);
        }
    }
    SourceOptions options = raw_options(16000, 3);
    options.channels = {3, 1};
    std::vector<int16_t> expected;
    for (std::size_t i = 0; i < kFrames; ++i) {
        expected.push_back(samples[3 * i + 2]);
        expected.push_back(samples[3 * i]);
    }
    for (const bool big : {false, true}) {
        options.raw->big_endian = big;
        options.raw->planar = false;
        const std::string bytes = raw_bytes(samples, big);
        EXPECT_EQ(read_all(folder_.write("i", bytes), options), expected);
        const Pipe pipe(folder_, bytes);
        EXPECT_EQ(read_all(pipe.path(), options), expected);
        options.raw->planar = true;
        const auto source = open_source(folder_.write("p", raw_bytes(planar, big)), options);
        EXPECT_EQ(source->info().length, int64_t{kFrames});
        EXPECT_TRUE(source->info().bit_exact);
        EXPECT_EQ(source->info().sf_format, 0);
        EXPECT_EQ(read_all(*source), expected);
        EXPECT_EQ(source->read(expected.data(), 1), 0);
    }
    const Pipe pipe(folder_, "");
    EXPECT_THAT(failure_of([&] { open_source(pipe.path(), options); }), HasSubstr("regular file"));
    folder_.write("p", std::string(3 * 2 * 5 + 2, 'x'));
    EXPECT_THAT(failure_of([&] { open_source(folder_.path("p"), options); }),
                HasSubstr("32 bytes are not 3 channels"));
    EXPECT_THAT(failure_of([&] { open_source(folder_.path("p"), raw_options(8000, 0)); }),
                HasSubstr("0 channels"));
}

TEST_F(AudioSourceTest, HandsOutEverythingBeforeAFault) {
    const std::vector<int16_t> samples = noise(200000, 4);
    std::vector<int16_t> before;
    const auto fails_after = [&](const std::string& name, const SourceOptions& options,
                                 std::size_t count, const std::string& reason) {
        const auto source = open_source(name, options);
        before.clear();
        EXPECT_THAT(failure_of([&] { read_all(*source, &before); }), HasSubstr(reason));
        EXPECT_EQ(before, std::vector<int16_t>(samples.begin(),
                                               samples.begin() + static_cast<int64_t>(count)));
        int16_t sample = 0;
        EXPECT_THAT(failure_of([&] { source->read(&sample, 1); }), HasSubstr(reason)) << "again";
    };
    const SourceOptions mono = raw_options(16000, 1);
    const SourceOptions stereo = raw_options(16000, 2);
    const std::string bytes = raw_bytes(samples);
    fails_after(folder_.write("odd", bytes + "x"), mono, 200000, "ends within a sample: 1 of 2");
    fails_after(folder_.write("odd", bytes + "xyz"), stereo, 200000, "3 of 4 bytes");
    fails_after(folder_.write("empty", ""), mono, 0, "holds no samples");
    {
        const Pipe pipe(folder_, bytes + "x");
        fails_after(pipe.path(), mono, 200000, "ends within a sample: 1 of 2");
    }
    for (const int container : {SF_FORMAT_AIFF, SF_FORMAT_AU, SF_FORMAT_CAF, SF_FORMAT_RF64,
                                SF_FORMAT_W64, SF_FORMAT_MAT4, SF_FORMAT_NIST}) {
        write_file(folder_.path("x"), container | SF_FORMAT_PCM_16, 16000, 1, samples);
        const std::string whole = folder_.read("x");
        fails_after(folder_.write("cut", whole.substr(0, whole.size() - 2 * 70000 + 1)), {}, 130000,
                    "truncated: ");
    }
    write_file(folder_.path("cut.wav"), kWav, 16000, 1, samples);
    const std::string cut = folder_.read("cut.wav").substr(0, 44 + 2 * 130000 + 1);
    fails_after(folder_.write("cut.wav", cut), {}, 130000, "truncated");
    {
        const Pipe pipe(folder_, cut);
        fails_after(pipe.path(), {}, 130000, "truncated: 130000 of 200000 samples");
    }
    EXPECT_THAT(failure_of([&] { open_source(folder_.path("empty"), {}); }),
                HasSubstr("empty file"));
    EXPECT_THAT(failure_of([&] { open_source(folder_.path("none"), mono); }), HasSubstr("No such"));
    EXPECT_THAT(failure_of([&] { open_source(folder_.path(), mono); }), HasSubstr("directory"));
}

TEST_F(AudioSourceTest, NoticesThatAFileShrinksOrGrowsWhileItIsRead) {
    const std::vector<int16_t> samples = noise(400000, 5);
    SourceOptions planar = raw_options(16000, 2);
    planar.raw->planar = true;
    for (const SourceOptions& options : {raw_options(16000, 1), planar, SourceOptions{}}) {
        write_file(folder_.path("x"), kWav, 16000, 1, samples);
        if (options.raw) {
            folder_.write("x", raw_bytes(samples));
        }
        const auto source = open_source(folder_.path("x"), options);
        std::vector<int16_t> some(2000);
        EXPECT_EQ(source->read(some.data(), 1000), 1000);
        std::filesystem::resize_file(folder_.path("x"), 300001);
        EXPECT_THAT(failure_of([&] { read_all(*source); }), HasSubstr("truncated"));
    }
    folder_.write("x", raw_bytes(samples));
    const auto source = open_source(folder_.path("x"), raw_options(16000, 1));
    std::filesystem::resize_file(folder_.path("x"), 900001);
    EXPECT_EQ(read_all(*source), samples);
}

TEST_F(AudioSourceTest, TakesLittleMemoryForAShortFileOfManyChannels) {
    write_file(folder_.path("many.wav"), SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 8000, 1024,
               std::vector<int32_t>(1024, 1 << 20));
    SourceOptions options;
    options.downmix = true;
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    int16_t samples[2];
    EXPECT_EQ(open_source(folder_.path("many.wav"), options)->read(samples, 2), 1);
    EXPECT_EQ(samples[0], 16);
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 100000);  // KB
}

TEST_F(AudioSourceTest, RefusesRatesThatTheDetectorDoesNotTake) {
    for (const int rate : {49999, 50000, kFastestRate, std::numeric_limits<int>::max()}) {
        write_file(folder_.path(std::to_string(rate)), kWav, rate, 1, noise(10, 8));
    }
    std::string rateless = folder_.read("49999");
    folder_.write("rateless", rateless.replace(24, 4, 4, '\0'));
    SourceOptions resampled;
    resampled.resample = true;
    const struct {
        const char* name;
        SourceOptions options;
        const char* reason;
    } cases[] = {
        {"50000", {}, "sampling rate 50000 Hz; the detector takes less than 50000 Hz; --resample"},
        {"49999", raw_options(0, 1), "1 Hz or more"},
        {"49999", raw_options(8000, 0), "0 channels"},
        {"rateless", {}, "no sampling rate"},
        // Ten samples at such a rate would become a gigabyte.
        {"2147483647", resampled, "sampling rate 2147483647 Hz; it must be 1000000 Hz or less"}};
    for (const auto& c : cases) {
        EXPECT_THAT(failure_of([&] { open_source(folder_.path(c.name), c.options); }),
                    HasSubstr(c.reason));
    }
    EXPECT_EQ(read_all(folder_.path("49999")).size(), 10U);
    EXPECT_EQ(open_source(folder_.path("1000000"), resampled)->info().rate, 48000);
}

TEST_F(AudioSourceTest, ResamplesEveryLengthWithoutShiftingIt) {
    for (const int rate : {50000, 50001, 88200, 96000, 192000}) {
        for (const int length : {1, 2, 3, 1000, 1001, 100000}) {
            SourceOptions options = raw_options(rate, 1);
            options.resample = true;
            folder_.write("x", std::string(2 * static_cast<std::size_t>(length), '\0'));
            const auto source = open_source(folder_.path("x"), options);
            const auto expected = static_cast<int64_t>(std::floor(length * 48000.0 / rate + 0.5));
            EXPECT_EQ(source->info().length, expected);
            EXPECT_FALSE(source->info().bit_exact);
            EXPECT_EQ(static_cast<int64_t>(read_all(*source).size()), expected);
        }
        // A tone that a listener could hear comes back as the same tone, one above half the new rate
        // not at all. Rounding before and after leaves at most sqrt(1/12 + 1/12) = 0.41 of a step of
        // a tone's 7071; a shift by a thousandth of a sample would make 0.9 at 1 kHz, and 0.002 dB
        // are 1.6.
        const std::pair<double, double> tones[] = {{1000, 1}, {20000, 1.7}, {24400, 0.5}};
        for (const auto& [hertz, most] : tones) {
            const auto at = [tone_hertz = hertz](std::size_t i, int of) {
                return 10000 * std::sin(2 * std::numbers::pi * tone_hertz * double(i) / of);
            };
            std::vector<int16_t> tone(100000);
            for (std::size_t i = 0; i < tone.size(); ++i) {
                tone[i] = static_cast<int16_t>(std::lrint(at(i, rate)));
            }
            SourceOptions options = raw_options(rate, 1);
            options.resample = true;
            const std::vector<int16_t> out = read_all(folder_.write("x", raw_bytes(tone)), options);
            double error = 0;
            constexpr std::size_t kEdge = 2000;  // there the filter sees the silence outside
            for (std::size_t i = kEdge; i < out.size() - kEdge; ++i) {
                error += std::pow(out[i] - (hertz < 24000 ? at(i, 48000) : 0), 2);
            }
            EXPECT_LT(std::sqrt(error / double(out.size() - 2 * kEdge)), most)
                << rate << " Hz, tone of " << hertz;
        }
    }
}

TEST_F(AudioSourceTest, ResamplesAPipeLikeAFileAndKeepsItsFaults) {
    const std::vector<int16_t> samples = noise(2 * 96001, 9);
    SourceOptions options = raw_options(96000, 2);
    options.resample = true;
    const std::string bytes = raw_bytes(samples);
    const std::vector<int16_t> expected = read_all(folder_.write("x", bytes), options);
    EXPECT_EQ(expected.size(), 2U * 48001);
    const Pipe pipe(folder_, bytes + "x");
    const auto source = open_source(pipe.path(), options);
    std::vector<int16_t> all;
    std::vector<int16_t> frame(2 * 480);
    const std::string failure = failure_of([&] {
        while (const int64_t count = source->read(frame.data(), 480)) {
            all.insert(all.end(), frame.begin(), frame.begin() + 2 * count);
        }
    });
    EXPECT_THAT(failure, HasSubstr("ends within a sample: 1 of 4 bytes"));
    EXPECT_EQ(all, expected);
}

}  // namespace
}  // namespace korvane::tool
