// The detector's interface; see korvane_vad.h.

#include <algorithm>
#include <cstdint>

#include "korvane_nrss.h"
#include "korvane_vad.h"
#include "platform/log.h"

namespace korvane {

namespace {

constexpr char kLogTag[] = "OLM_VOR_a64";
constexpr int32_t kSuppressionLevel = 9;  // the strongest, always
constexpr int32_t kStartRate = 16000;     // Hz, until the host configures one

constinit char version_text[] = "Korvane VAD v3.0 a64 2020.06.22)";

/** Set by an initialisation, cleared by the first sampling-rate configuration after it, which alone
 * reaches the suppressor. */
constinit uint8_t nrss_reinit_pending = 0;

void configure_rate(VadHandle* handle, uint32_t rate) {
    log_sink()(kLogInfo, kLogTag, "VoiceActivityDetectionSamplingRateConfig %d",
               static_cast<int>(rate));
    handle->sampling_rate = rate;
    OLM_VOR_SetFs(static_cast<int>(rate));
    if (nrss_reinit_pending == 1) {
        Tolu_NRSS_Init(kSuppressionLevel, static_cast<int32_t>(rate));
        nrss_reinit_pending = 0;
    }
}

void configure_frame_length(VadHandle* handle, uint32_t length) {
    log_sink()(kLogInfo, kLogTag, "VoiceActivityDetectionFrameLengthConfig %d",
               static_cast<int>(length));
    // Lengths count all samples of a frame; only mono has one channel.
    handle->frame_length = static_cast<int16_t>(length >> (handle->channel_mode == 1 ? 0 : 1));
}

void configure_channel_mode(VadHandle* handle, int mode) {
    log_sink()(kLogInfo, kLogTag, "VoiceActivityDetectionChannelModeConfig %d", mode);
    handle->channel_mode = static_cast<uint16_t>(mode);
}

int process_mono(VadHandle* handle, int n) {
    std::copy_n(handle->samples, n, handle->ch0_work);
    Tolu_NRSS_EXE(handle->ch0_work, n, 1);
    return OLM_VOR(handle->ch0_work, nullptr, n);
}

int process_interleaved(VadHandle* handle, int n) {
    Tolu_NRSS_EXE(handle->samples, n, 2);
    for (int i = 0; i < n; ++i) {
        handle->ch0_work[i] = handle->samples[2 * i];
        handle->ch1_work[i] = handle->samples[2 * i + 1];
    }
    return OLM_VOR(handle->ch0_work, handle->ch1_work, n);
}

int process_planar(VadHandle* handle, int n) {
    std::copy_n(handle->samples, n, handle->ch0_work);
    std::copy_n(handle->samples + n, n, handle->ch1_work);
    Tolu_NRSS_Buffered(handle->ch0_work, handle->ch1_work, n);
    return OLM_VOR(handle->ch0_work, handle->ch1_work, n);
}

}  // namespace

}  // namespace korvane

extern "C" {

int VoiceActivityDetectionInit(void) {
    using namespace korvane;
    log_sink()(kLogInfo, kLogTag, "VoiceActivityDetectionInit() Version %s", version_text);
    OLM_VOR_Init();
    OLM_VOR_SetFs(kStartRate);
    Tolu_NRSS_BufInit();
    Tolu_NRSS_Init(kSuppressionLevel, kStartRate);
    nrss_reinit_pending = 1;
    return 0;
}

int VoiceActivityDetectionSamplingRateConfig(VadHandle* handle, uint32_t rate) {
    korvane::configure_rate(handle, rate);
    return 0;
}

int VoiceActivityDetectionFrameLengthConfig(VadHandle* handle, uint32_t length) {
    korvane::configure_frame_length(handle, length);
    return 0;
}

int VoiceActivityDetectionInOutConfig(VadHandle* handle, int16_t* samples) {
    handle->samples = samples;
    return 0;
}

int VoiceActivityDetectionChannelModeConfig(VadHandle* handle, int mode) {
    korvane::configure_channel_mode(handle, mode);
    return 0;
}

int VoiceActivityDetectionParamConfig(VadHandle* /*handle*/) { return 0; }

int VoiceActivityDetectionConfigAll(VadHandle* handle, uint32_t rate, uint32_t length,
                                    int16_t* samples, int mode) {
    korvane::configure_rate(handle, rate);
    korvane::configure_frame_length(handle, length);
    handle->samples = samples;
    korvane::configure_channel_mode(handle, mode);
    return 0;
}

int VoiceActivityDetectionExe(VadHandle* handle) {
    const int n = handle->frame_length;
    if (n < 1 || n > KORVANE_VAD_MAX_FRAME) {
        return 0;
    }
    switch (handle->channel_mode) {
        case 1:
            return korvane::process_mono(handle, n);
        case 2:
            return korvane::process_interleaved(handle, n);
        case 3:
            return korvane::process_planar(handle, n);
        default:
            return 0;
    }
}

const char* VoiceActivityDetectionVersion(void) { return korvane::version_text; }

}  // extern "C"
