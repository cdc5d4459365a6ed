#include "tools/results/detection.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <exception>
#include <memory>
#include <stdexcept>
#include <vector>

#include "korvane_vad.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

class Detector {
  public:
    Detector(int rate, int channels, int frame) {
        VoiceActivityDetectionInit();
        VoiceActivityDetectionChannelModeConfig(&handle_, channels);
        VoiceActivityDetectionSamplingRateConfig(&handle_, static_cast<uint32_t>(rate));
        VoiceActivityDetectionFrameLengthConfig(&handle_, static_cast<uint32_t>(frame * channels));
    }

    /** @param samples  a frame, interleaved; replaced by the cleaned one */
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

class Detection {
  public:
    Detection(AudioSource& source, int frame, Measures measures)
        : source_(source),
          frame_(frame),
          measures_(measures),
          channels_(source.info().channels),
          delay_(segments::delay_of(source.info().rate)),
          detector_(source.info().rate, channels_, frame),
          noisy_(static_cast<std::size_t>(frame * channels_)),
          cleaned_(noisy_.size()) {}

    StreamTotals run(const std::function<bool(const Frame&)>& each) {
        // Zeros follow the input until its last sample has come back.
        for (int64_t position = 0; !ended_ || position < totals_.length + delay_;
             position += frame_) {
            const int64_t count = next_frame();
            if (fault_ && totals_.length == 0) {
                break;  // there is nothing to answer
            }
            if (!each(process(position, count))) {
                fault_ = nullptr;
                break;
            }
        }
        if (fault_) {
            std::rethrow_exception(fault_);
        }
        if (measures_.digest) {
            totals_.sha256 = digest_.hexadecimal();
        }
        return totals_;
    }

  private:
    /** Samples of the input in the next frame; zeros fill it up. */
    int64_t next_frame() {
        int64_t count = 0;
        if (!ended_) {
            count = read(noisy_.data(), frame_);
            ended_ = count < frame_;
            if (count > 0 && ended_) {
                std::vector<int16_t> nothing(noisy_.size());
                read(nothing.data(), 1);  // tells whether that was a sound end
            }
        }
        const auto samples = count * channels_;
        std::fill(noisy_.begin() + samples, noisy_.end(), int16_t{0});
        if (measures_.digest) {
            digest_.add(noisy_.data(), static_cast<std::size_t>(samples));
        }
        totals_.length += count;
        return count;
    }

    int64_t read(int16_t* samples, int64_t n) {
        try {
            return source_.read(samples, n);
        } catch (const Failure&) {
            fault_ = std::current_exception();
            return 0;
        }
    }

    Frame process(int64_t position, int64_t count) {
        cleaned_ = noisy_;
        Frame frame;
        frame.speech = detector_.process(cleaned_.data());
        frame.index = totals_.frames++;
        frame.begin = position - delay_;
        frame.end = frame.begin + frame_;
        frame.fed = position + frame_;
        if (measures_.level) {
            frame.level = level_of(cleaned_.data(), frame_, channels_);
        }
        frame.noisy = noisy_.data();
        frame.noisy_count = count;
        frame.cleaned_begin = std::clamp<int64_t>(frame.begin, 0, totals_.length);
        const int64_t cleaned_end =
            std::clamp<int64_t>(frame.end, frame.cleaned_begin, totals_.length);
        frame.cleaned_count = cleaned_end - frame.cleaned_begin;
        frame.cleaned = cleaned_.data() + (frame.cleaned_begin - frame.begin) * channels_;
        return frame;
    }

    AudioSource& source_;
    int frame_;
    Measures measures_;
    int channels_;
    int64_t delay_;
    Detector detector_;
    SampleDigest digest_;
    StreamTotals totals_;
    bool ended_ = false;
    std::exception_ptr fault_;  // of the source, held back until its samples have been answered
    std::vector<int16_t> noisy_;
    std::vector<int16_t> cleaned_;
};

}  // namespace

StreamTotals detect(AudioSource& source, int frame, Measures measures,
                    const std::function<bool(const Frame&)>& each) {
    if (frame < 1 || frame > KORVANE_VAD_MAX_FRAME) {
        throw std::invalid_argument("frame length outside 1..4096 samples");
    }
    return Detection(source, frame, measures).run(each);
}

}  // namespace korvane::tool
