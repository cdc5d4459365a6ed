// The exported calls: one stream, and the symbols that hosts may write. korvane_vad.h and
// korvane_nrss.h say what each call does.

#include "detector/detector.h"
#include "korvane_nrss.h"
#include "nrss/pipeline/block_pipeline.h"

namespace korvane {

constinit Detector exported_stream = {};

namespace {

/** The stream, with the weights that the host sees as osf and may have replaced. */
Detector& stream_with_host_weights() {
    exported_stream.suppressor.osf = osf;
    return exported_stream;
}

/** What an initialisation settles outside the stream. */
void publish(const NrssState& s) {
    if (s.level != 0) {
        osf = s.osf;
        fft288_init();
    }
}

}  // namespace

}  // namespace korvane

using korvane::exported_stream;

extern "C" {

const int16_t* osf = nullptr;

int VoiceActivityDetectionInit(void) {
    korvane::vad_init(exported_stream);
    korvane::publish(exported_stream.suppressor);
    return 0;
}

int VoiceActivityDetectionSamplingRateConfig(VadHandle* handle, uint32_t rate) {
    const bool initialises = exported_stream.nrss_reinit_pending == 1;
    korvane::vad_configure_rate(exported_stream, *handle, rate);
    if (initialises) {
        korvane::publish(exported_stream.suppressor);
    }
    return 0;
}

int VoiceActivityDetectionFrameLengthConfig(VadHandle* handle, uint32_t length) {
    korvane::vad_configure_frame_length(*handle, length);
    return 0;
}

int VoiceActivityDetectionInOutConfig(VadHandle* handle, int16_t* samples) {
    handle->samples = samples;
    return 0;
}

int VoiceActivityDetectionChannelModeConfig(VadHandle* handle, int mode) {
    korvane::vad_configure_channel_mode(*handle, mode);
    return 0;
}

int VoiceActivityDetectionParamConfig(VadHandle* /*handle*/) { return 0; }

int VoiceActivityDetectionConfigAll(VadHandle* handle, uint32_t rate, uint32_t length,
                                    int16_t* samples, int mode) {
    VoiceActivityDetectionSamplingRateConfig(handle, rate);
    VoiceActivityDetectionFrameLengthConfig(handle, length);
    VoiceActivityDetectionInOutConfig(handle, samples);
    return VoiceActivityDetectionChannelModeConfig(handle, mode);
}

int VoiceActivityDetectionExe(VadHandle* handle) {
    return korvane::vad_execute(korvane::stream_with_host_weights(), *handle);
}

const char* VoiceActivityDetectionVersion(void) { return korvane::vad_version(); }

void OLM_VOR_Init(void) { korvane::VOR_Init(exported_stream.level); }

void OLM_VOR_SetFs(int /*rate*/) { korvane::VOR_SetFs(exported_stream.level); }

int OLM_VOR(const int16_t* ch0, const int16_t* ch1, int n) {
    return korvane::VOR_Decide(exported_stream.level, ch0, ch1, n);
}

void Tolu_NRSS_BufInit(void) { korvane::NRSS_BufInit(exported_stream.stream); }

void Tolu_NRSS_Buffered(int16_t* ch0, int16_t* ch1, int n) {
    korvane::Detector& d = korvane::stream_with_host_weights();
    korvane::NRSS_Buffered(d.stream, d.suppressor, ch0, ch1, n);
}

void Tolu_NRSS_EXE(int16_t* samples, int n, int mode) {
    korvane::Detector& d = korvane::stream_with_host_weights();
    korvane::NRSS_EXE(d.stream, d.suppressor, samples, n, mode);
}

void Tolu_NRSS(int16_t* samples, int n) { Tolu_NRSS_EXE(samples, n, 2); }

void Tolu_NRSS_Interleave(int16_t* dst, const int16_t* ch0, const int16_t* ch1, int n) {
    korvane::NRSS_Interleave(dst, ch0, ch1, n);
}

void Tolu_NRSS_Nonintlvd(int16_t* ch0, int16_t* ch1, int32_t n) {
    korvane::NRSS_Nonintlvd(korvane::stream_with_host_weights().suppressor, ch0, ch1, n);
}

void Tolu_NRSS_Init(int32_t level, int32_t rate) {
    korvane::NRSS_Init(exported_stream.suppressor, level, rate);
    korvane::publish(exported_stream.suppressor);
}

}  // extern "C"
