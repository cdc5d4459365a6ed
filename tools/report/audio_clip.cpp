#include "tools/report/audio_clip.h"

#include <lame/lame.h>
#include <sndfile.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace korvane::tool::report {

class Encoder {
  public:
    Encoder() = default;
    virtual ~Encoder() = default;
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    virtual void add(const int16_t* samples, std::size_t frames) = 0;
    virtual void finish() = 0;

    std::vector<uint8_t> bytes;
};

namespace {

constexpr std::size_t kAtOnce = 1 << 18;  // samples

[[noreturn]] void fail(const std::string& reason) {
    throw std::runtime_error("the report's audio: " + reason);
}

class Flac : public Encoder {
  public:
    Flac(int rate, int channels) {
        SF_INFO info{};
        info.samplerate = rate;
        info.channels = channels;
        info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
        SF_VIRTUAL_IO io = memory_io();
        handle_ = sf_open_virtual(&io, SFM_WRITE, &info, this);
        if (handle_ == nullptr) {
            fail(sf_strerror(nullptr));
        }
    }
    ~Flac() override {
        if (handle_ != nullptr) {
            sf_close(handle_);
        }
    }
    void add(const int16_t* samples, std::size_t frames) override {
        const auto n = static_cast<sf_count_t>(frames);
        if (sf_writef_short(handle_, samples, n) != n) {
            fail(sf_strerror(handle_));
        }
    }
    void finish() override {
        if (sf_close(std::exchange(handle_, nullptr)) != 0) {
            fail(sf_strerror(nullptr));
        }
    }

  private:
    // libsndfile's view of a file that is a vector and only written.
    static SF_VIRTUAL_IO memory_io() {
        SF_VIRTUAL_IO io{};
        io.get_filelen = [](void* user) {
            return static_cast<sf_count_t>(static_cast<Flac*>(user)->bytes.size());
        };
        io.tell = [](void* user) {
            return static_cast<sf_count_t>(static_cast<Flac*>(user)->position_);
        };
        io.seek = [](sf_count_t offset, int whence, void* user) {
            return static_cast<Flac*>(user)->seek(offset, whence);
        };
        io.write = [](const void* from, sf_count_t n, void* user) {
            static_cast<Flac*>(user)->write(static_cast<const uint8_t*>(from),
                                            static_cast<std::size_t>(n));
            return n;
        };
        return io;
    }
    sf_count_t seek(sf_count_t offset, int whence) {
        const auto size = static_cast<sf_count_t>(bytes.size());
        const auto here = static_cast<sf_count_t>(position_);
        const sf_count_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? here : size;
        position_ = static_cast<std::size_t>(std::clamp<sf_count_t>(from + offset, 0, size));
        return static_cast<sf_count_t>(position_);
    }
    void write(const uint8_t* from, std::size_t count) {
        bytes.resize(std::max(bytes.size(), position_ + count));
        std::copy_n(from, count, bytes.data() + position_);
        position_ += count;
    }

    SNDFILE* handle_ = nullptr;
    std::size_t position_ = 0;
};

/** kbit/s: an hour of one channel, before and after, takes 15 MB; shorter recordings sound better. */
int bit_rate(int channels, std::optional<double> seconds) {
    constexpr double kOfAnHour = 16 * 3600;
    const double wanted = seconds ? kOfAnHour / std::max(*seconds, 1.0) : 24;
    return std::clamp(static_cast<int>(wanted), 16 * channels, 64 * channels);
}

class Mp3 : public Encoder {
  public:
    Mp3(int rate, int channels, int kilobits) : channels_(channels) {
        lame_set_in_samplerate(lame_.get(), rate);
        lame_set_num_channels(lame_.get(), channels);
        lame_set_mode(lame_.get(), channels == 1 ? MONO : JOINT_STEREO);
        lame_set_brate(lame_.get(), kilobits);
        lame_set_quality(lame_.get(), 7);  // of 0, the best, to 9, the fastest
        lame_set_write_id3tag_automatic(lame_.get(), 0);
        for (const auto set : {lame_set_errorf, lame_set_msgf, lame_set_debugf}) {
            set(lame_.get(), [](const char*, va_list) {});
        }
        if (lame_init_params(lame_.get()) < 0) {
            fail("MP3 does not hold " + std::to_string(rate) + " Hz");
        }
    }
    void add(const int16_t* samples, std::size_t frames) override {
        const auto n = static_cast<int>(frames);
        // Above what its header asks for: a quarter more than a byte for each sample that is encoded.
        const int resampled =
            lame_get_out_samplerate(lame_.get()) / lame_get_in_samplerate(lame_.get());
        uint8_t* const room =
            make_room(2 * frames * static_cast<std::size_t>(resampled + 1) + 7200);
        auto* const in = const_cast<int16_t*>(samples);  // it only reads them
        keep(channels_ == 1 ? lame_encode_buffer(lame_.get(), in, in, n, room, most_)
                            : lame_encode_buffer_interleaved(lame_.get(), in, n, room, most_));
    }
    // The first frame says how many there are, and what encoding has put before the sound.
    void finish() override {
        uint8_t* const room = make_room(7200);
        keep(lame_encode_flush(lame_.get(), room, most_));
        const std::size_t size = lame_get_lametag_frame(lame_.get(), nullptr, 0);
        if (size > bytes.size()) {
            fail("MP3 without a first frame");
        }
        lame_get_lametag_frame(lame_.get(), bytes.data(), size);
    }

  private:
    struct Close {
        void operator()(lame_global_flags* lame) const { lame_close(lame); }
    };
    uint8_t* make_room(std::size_t more) {
        most_ = static_cast<int>(more);
        filled_ = bytes.size();
        bytes.resize(filled_ + more);
        return bytes.data() + filled_;
    }
    void keep(int count) {
        if (count < 0) {
            fail("MP3 cannot be written (" + std::to_string(count) + ")");
        }
        bytes.resize(filled_ + static_cast<std::size_t>(count));
    }

    std::unique_ptr<lame_global_flags, Close> lame_{lame_init()};
    int channels_;
    int most_ = 0;
    std::size_t filled_ = 0;
};

std::unique_ptr<Encoder> encoder_of(EmbeddedAudio format, int rate, int channels,
                                    std::optional<double> seconds) {
    if (format == EmbeddedAudio::kFlac) {
        return std::make_unique<Flac>(rate, channels);
    }
    return std::make_unique<Mp3>(rate, channels, bit_rate(channels, seconds));
}

}  // namespace

AudioClip::AudioClip(EmbeddedAudio format, int rate, int channels, std::optional<double> seconds)
    : encoder_(encoder_of(format, rate, channels, seconds)), channels_(channels) {}

AudioClip::~AudioClip() {
    if (encoding_.valid()) {
        encoding_.wait();
    }
}

void AudioClip::add(const int16_t* samples, int64_t n) {
    collected_.insert(collected_.end(), samples, samples + n * channels_);
    if (collected_.size() >= kAtOnce) {
        encode();
    }
}

void AudioClip::wait() {
    if (encoding_.valid()) {
        size_ = encoding_.get();
    }
}

void AudioClip::encode() {
    wait();
    in_work_.swap(collected_);
    collected_.clear();
    encoding_ = std::async(std::launch::async, [this] {
        encoder_->add(in_work_.data(), in_work_.size() / static_cast<std::size_t>(channels_));
        return static_cast<int64_t>(encoder_->bytes.size());
    });
}

std::vector<uint8_t> AudioClip::finish() {
    encode();
    wait();
    encoder_->finish();
    return std::move(encoder_->bytes);
}

}  // namespace korvane::tool::report
