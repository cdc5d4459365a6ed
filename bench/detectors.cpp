#include "detectors.h"

#include <dlfcn.h>
#include <speex/speex_preprocess.h>

#include <webrtc/modules/audio_processing/include/audio_processing.h>
#include <webrtc/modules/interface/module_common_types.h>
#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <vector>

// Where the libraries' log goes while they are measured: nowhere.
extern "C" __attribute__((visibility("default"))) int __android_log_print(int /*priority*/,
                                                                          const char* /*tag*/,
                                                                          const char* /*format*/,
                                                                          ...) {
    return 0;
}

namespace korvane::bench {

Library::Library(const std::string& path)
    : path_(path), handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) {
        throw std::runtime_error(dlerror());
    }
    init = reinterpret_cast<decltype(init)>(symbol("VoiceActivityDetectionInit"));
    config_all = reinterpret_cast<decltype(config_all)>(symbol("VoiceActivityDetectionConfigAll"));
    exe = reinterpret_cast<decltype(exe)>(symbol("VoiceActivityDetectionExe"));
    fft288_init = reinterpret_cast<decltype(fft288_init)>(symbol("fft288_init"));
    real_fft288 = reinterpret_cast<decltype(real_fft288)>(symbol("real_fft288"));
}

void* Library::symbol(const char* name) const {
    void* const address = dlsym(handle_, name);
    if (address == nullptr) {
        throw std::runtime_error(path_ + " does not have " + name);
    }
    return address;
}

OwnDetector::OwnDetector(const Library& library, Format format)
    : library_(library), frame_bytes_(format.frame_samples() * sizeof(int16_t)) {
    if (frame_bytes_ > sizeof frame_) {
        throw std::runtime_error("frame too long");
    }
    const auto rate = static_cast<uint32_t>(format.rate);
    const auto length = static_cast<uint32_t>(format.frame_samples());
    library_.init();
    for (int i = 0; i < 2; ++i) {  // the length is halved by the mode that was set before
        library_.config_all(&vad_, rate, length, frame_, format.channels);
    }
}

bool OwnDetector::process(const int16_t* frame) {
    std::memcpy(frame_, frame, frame_bytes_);
    return library_.exe(&vad_) != 0;
}

namespace {

class SpeexDetector : public Detector {
  public:
    explicit SpeexDetector(Format format)
        : length_(static_cast<size_t>(format.frame_length())),
          channels_(static_cast<size_t>(format.channels)) {
        for (size_t c = 0; c < channels_; ++c) {
            SpeexPreprocessState* const state =
                speex_preprocess_state_init(format.frame_length(), format.rate);
            int on = 1;
            speex_preprocess_ctl(state, SPEEX_PREPROCESS_SET_DENOISE, &on);
            speex_preprocess_ctl(state, SPEEX_PREPROCESS_SET_VAD, &on);
            states_.emplace_back(state);
            frames_.emplace_back(length_);
        }
    }

    bool process(const int16_t* frame) override {
        bool speech = false;
        for (size_t c = 0; c < channels_; ++c) {
            for (size_t i = 0; i < length_; ++i) {
                frames_[c][i] = frame[channels_ * i + c];
            }
            speech |= speex_preprocess_run(states_[c].get(), frames_[c].data()) != 0;
        }
        return speech;
    }

  private:
    struct Destroy {
        void operator()(SpeexPreprocessState* state) const {
            speex_preprocess_state_destroy(state);
        }
    };

    size_t length_;
    size_t channels_;
    std::vector<std::unique_ptr<SpeexPreprocessState, Destroy>> states_;
    std::vector<std::vector<int16_t>> frames_;
};

class WebrtcDetector : public Detector {
  public:
    explicit WebrtcDetector(Format format)
        : processing_(webrtc::AudioProcessing::Create()), format_(format) {
        processing_->noise_suppression()->set_level(webrtc::NoiseSuppression::kHigh);
        processing_->noise_suppression()->Enable(true);
        processing_->voice_detection()->set_frame_size_ms(10);
        processing_->voice_detection()->Enable(true);
    }

    bool process(const int16_t* frame) override {
        frame_.UpdateFrame(0, 0, frame, static_cast<size_t>(format_.frame_length()), format_.rate,
                           webrtc::AudioFrame::kNormalSpeech, webrtc::AudioFrame::kVadUnknown,
                           format_.channels);
        if (processing_->ProcessStream(&frame_) != webrtc::AudioProcessing::kNoError) {
            throw std::runtime_error("webrtc-audio-processing refuses the frame");
        }
        return processing_->voice_detection()->stream_has_voice();
    }

  private:
    std::unique_ptr<webrtc::AudioProcessing> processing_;
    Format format_;
    webrtc::AudioFrame frame_;
};

}  // namespace

std::unique_ptr<Detector> make_speexdsp(Format format) {
    return std::make_unique<SpeexDetector>(format);
}

std::unique_ptr<Detector> make_webrtc(Format format) {
    return std::make_unique<WebrtcDetector>(format);
}

}  // namespace korvane::bench
