/**
 * The detectors that are compared, behind one interface: a frame of 10 ms in, a decision out, the
 * cleaned frame left in a buffer of the detector.
 */
#ifndef KORVANE_BENCH_DETECTORS_H
#define KORVANE_BENCH_DETECTORS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "korvane_vad.h"

namespace korvane::bench {

struct Format {
    int rate;      ///< Hz
    int channels;  ///< 1 or 2

    /** Samples per channel in 10 ms. */
    int frame_length() const { return rate / 100; }
    /** Samples of all channels in 10 ms. */
    size_t frame_samples() const {
        return static_cast<size_t>(frame_length()) * static_cast<size_t>(channels);
    }
};

class Detector {
  public:
    virtual ~Detector() = default;

    /**
     * @param frame  frame_samples() samples, interleaved, only read
     * @return       whether there is speech
     */
    virtual bool process(const int16_t* frame) = 0;
};

/** One build of this library, loaded beside others: each has its own state. */
class Library {
  public:
    /** Throws std::runtime_error where the file cannot be loaded or lacks a name. */
    explicit Library(const std::string& path);

    decltype(&VoiceActivityDetectionInit) init;
    decltype(&VoiceActivityDetectionConfigAll) config_all;
    decltype(&VoiceActivityDetectionExe) exe;
    void (*fft288_init)();
    void (*real_fft288)(int32_t* out, const int32_t* in);

  private:
    void* symbol(const char* name) const;

    std::string path_;
    void* handle_;
};

/** This library's detector; it starts a new stream. One at a time for each library. */
class OwnDetector : public Detector {
  public:
    OwnDetector(const Library& library, Format format);
    bool process(const int16_t* frame) override;

    /** The cleaned samples of the last frame, [channel] */
    const int16_t* cleaned(int channel) const {
        return channel == 0 ? vad_.ch0_work : vad_.ch1_work;
    }

  private:
    const Library& library_;
    size_t frame_bytes_;
    VadHandle vad_ = {};
    int16_t frame_[2 * 480] = {};
};

/** SpeexDSP's preprocessor with noise suppression and voice detection, one state per channel. */
std::unique_ptr<Detector> make_speexdsp(Format format);

/** webrtc-audio-processing with noise suppression and voice detection. */
std::unique_ptr<Detector> make_webrtc(Format format);

}  // namespace korvane::bench

#endif
