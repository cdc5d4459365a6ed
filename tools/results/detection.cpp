#include "tools/results/detection.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

/** SHA-256 of the samples as 16-bit little-endian words. */
class SampleDigest {
  public:
    SampleDigest() : context_(EVP_MD_CTX_new()) {
        if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
            throw std::runtime_error("SHA-256 is not available");
        }
    }

    void add(const int16_t* samples, std::size_t count) {
        if constexpr (std::endian::native == std::endian::little) {
            EVP_DigestUpdate(context_.get(), samples, count * sizeof *samples);
        } else {
            for (std::size_t i = 0; i < count; ++i) {
                const auto bits = static_cast<uint16_t>(samples[i]);
                const uint8_t bytes[] = {static_cast<uint8_t>(bits & 0xFF),
                                         static_cast<uint8_t>(bits >> 8)};
                EVP_DigestUpdate(context_.get(), bytes, sizeof bytes);
            }
        }
    }

    std::string hexadecimal() {
        std::array<uint8_t, EVP_MAX_MD_SIZE> bytes{};
        unsigned size = 0;
        EVP_DigestFinal_ex(context_.get(), bytes.data(), &size);
        std::string digits;
        for (unsigned i = 0; i < size; ++i) {
            constexpr char kDigits[] = "0123456789abcdef";
            digits += kDigits[bytes[i] >> 4];
            digits += kDigits[bytes[i] & 15];
        }
        return digits;
    }

  private:
    struct Free {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };
    std::unique_ptr<EVP_MD_CTX, Free> context_;
};

/** dB of full scale, of the louder channel. */
double level_of(const int16_t* samples, int frame, int channels) {
    int64_t loudest = 0;
    for (int c = 0; c < channels; ++c) {
        int64_t energy = 0;
        for (int i = 0; i < frame; ++i) {
            const int64_t sample = samples[i * channels + c];
            energy += sample * sample;
        }
        loudest = std::max(loudest, energy);
    }
    const double rms = std::sqrt(static_cast<double>(loudest) / frame) / 32768.0;
    return 20 * std::log10(rms + 1e-7);
}

constexpr int64_t kBlock = 576;  // of the suppressor; it comes back while the next one goes in

/** One detector, and what it hears: channels `first` and following of `width`. */
class Detection {
  public:
    Detection(const KorvaneStreamConfig& config, int first, int width, bool digest,
              const Listener& listener)
        : listener_(listener),
          first_(first),
          width_(width),
          by_detector_(config.decision == KORVANE_DECISION_DETECTOR),
          frame_(config.frame_length),
          channels_(config.channels) {
        KorvaneStreamConfig own = config;
        own.user = this;
        // The library cannot pass on an exception of a listener, so that results wait for it here.
        own.on_result = [](void* user, const KorvaneStreamResult* result) {
            static_cast<Detection*>(user)->results_.push_back(*result);
        };
        int32_t error = KORVANE_OK;
        stream_.reset(korvane_stream_create(&own, &error));
        if (!stream_) {
            throw std::invalid_argument(korvane_stream_error_text(error));
        }
        delay_ = korvane_stream_delay(stream_.get());
        to_skip_ = delay_;
        const auto samples = static_cast<std::size_t>(channels_);
        input_.resize(static_cast<std::size_t>(frame_) * samples);
        cleaned_.resize(static_cast<std::size_t>(std::max(frame_, delay_)) * samples);
        if (digest) {
            digest_.emplace();
        }
    }

    /** How much is to come next: a frame, or what completes a block, since then there are answers. */
    int64_t wanted() const {
        const int64_t of_block = kBlock - totals_.length % kBlock;
        return by_detector_ ? frame_ : std::min<int64_t>(frame_, of_block);
    }

    /** The next n samples of all channels, as many as wanted or, at the end, fewer. */
    void add(const int16_t* samples, int64_t n) {
        if (channels_ == width_) {
            std::copy_n(samples, n * channels_, input_.begin());
        } else {
            int16_t* to = input_.data();
            for (int64_t i = 0; i < n; ++i) {
                to = std::copy_n(samples + i * width_ + first_, channels_, to);
            }
        }
        if (digest_) {
            digest_->add(input_.data(), static_cast<std::size_t>(n * channels_));
        }
        totals_.length += n;
        if (listener_.input) {
            listener_.input(input_.data(), n);
        }
        std::fill(input_.begin() + n * channels_, input_.end(), int16_t{0});
        feed(by_detector_ ? frame_ : n);
    }

    StreamTotals end(const std::string& fault) {
        totals_.fault = fault;
        if (by_detector_ && totals_.length > 0) {
            std::fill(input_.begin(), input_.end(), int16_t{0});
            while (totals_.frames * frame_ < totals_.length + delay_) {
                feed(frame_);
            }
        } else if (totals_.length > 0) {
            korvane_stream_end(stream_.get(), cleaned_.data());
            tell(delay_);
        }
        if (digest_) {
            totals_.sha256 = digest_->hexadecimal();
        }
        return totals_;
    }

  private:
    void feed(int64_t n) {
        korvane_stream_process(stream_.get(), input_.data(), cleaned_.data(),
                               static_cast<int32_t>(n));
        tell(n);
    }

    /** What has come back: results, and n samples. */
    void tell(int64_t n) {
        for (const KorvaneStreamResult& result : results_) {
            Frame frame;
            frame.index = totals_.frames++;
            frame.begin = result.position;
            frame.end = result.position + result.length;
            frame.fed = by_detector_ ? frame.end + delay_ : heard_for(frame.end, delay_);
            frame.speech = result.speech != 0;
            frame.score = result.score;
            frame.level =
                by_detector_ ? level_of(cleaned_.data(), frame_, channels_) : result.level_db;
            frame.noise = result.noise_db;
            if (listener_.frame) {
                listener_.frame(frame);
            }
        }
        results_.clear();
        const int64_t skipped = std::min(to_skip_, n);
        to_skip_ -= skipped;
        const int64_t count = std::min(n - skipped, totals_.length - returned_);
        returned_ += count;
        if (count > 0 && listener_.cleaned) {
            listener_.cleaned(cleaned_.data() + skipped * channels_, count);
        }
    }

    struct Destroy {
        void operator()(KorvaneStream* stream) const { korvane_stream_destroy(stream); }
    };

    const Listener& listener_;
    int first_;
    int width_;
    bool by_detector_;
    int32_t frame_;
    int32_t channels_;
    std::unique_ptr<KorvaneStream, Destroy> stream_;
    int32_t delay_ = 0;
    int64_t to_skip_ = 0;   // cleaned samples that lie before the input
    int64_t returned_ = 0;  // cleaned samples that lie in it
    std::optional<SampleDigest> digest_;
    StreamTotals totals_;
    std::vector<KorvaneStreamResult> results_;
    std::vector<int16_t> input_;
    std::vector<int16_t> cleaned_;
};

}  // namespace

int64_t heard_for(int64_t end, int64_t delay) { return (end + delay - 1) / kBlock * kBlock; }

std::vector<StreamTotals> detect(AudioSource& source, const KorvaneStreamConfig& config,
                                 bool digest, const std::vector<Listener>& listeners) {
    const int width = source.info().channels;
    std::deque<Detection> detections;  // whose callbacks know where they are
    for (std::size_t i = 0; i < listeners.size(); ++i) {
        detections.emplace_back(config, static_cast<int>(i) * config.channels, width, digest,
                                listeners[i]);
    }
    std::vector<int16_t> samples(static_cast<std::size_t>(config.frame_length) *
                                 static_cast<std::size_t>(width));
    std::string fault;
    bool begun = false;
    const auto read = [&]() -> int64_t {
        try {
            return source.read(samples.data(), detections.front().wanted());
        } catch (const Failure& failure) {
            if (!begun) {
                throw;
            }
            fault = failure.what();
            return 0;
        }
    };
    while (const int64_t n = read()) {
        begun = true;
        for (Detection& detection : detections) {
            detection.add(samples.data(), n);
        }
    }
    std::vector<StreamTotals> totals;
    totals.reserve(detections.size());
    for (Detection& detection : detections) {
        totals.push_back(detection.end(fault));
    }
    return totals;
}

}  // namespace korvane::tool
