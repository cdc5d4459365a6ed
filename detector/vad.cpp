#include "detector/detector.h"

#include <algorithm>
#include <cstdint>

#include "platform/log.h"

namespace korvane {

namespace {

constexpr char kLogTag[] = "OLM_VOR_a64";
constexpr int32_t kSuppressionLevel = 9;  // the strongest, always
constexpr int32_t kStartRate = 16000;     // Hz, until the host configures one

constinit char version_text[] = "Korvane VAD v3.0 a64 2020.06.22)";

int process_mono(Detector& d, VadHandle& handle, int n) {
    std::copy_n(handle.samples, n, handle.ch0_work);
    NRSS_EXE(d.stream, d.suppressor, handle.ch0_work, n, 1);
    return VOR_Decide(d.level, handle.ch0_work, nullptr, n);
}

int process_interleaved(Detector& d, VadHandle& handle, int n) {
    NRSS_EXE(d.stream, d.suppressor, handle.samples, n, 2);
    for (int i = 0; i < n; ++i) {
        handle.ch0_work[i] = handle.samples[2 * i];
        handle.ch1_work[i] = handle.samples[2 * i + 1];
    }
    return VOR_Decide(d.level, handle.ch0_work, handle.ch1_work, n);
}

int process_planar(Detector& d, VadHandle& handle, int n) {
    std::copy_n(handle.samples, n, handle.ch0_work);
    std::copy_n(handle.samples + n, n, handle.ch1_work);
    NRSS_Buffered(d.stream, d.suppressor, handle.ch0_work, handle.ch1_work, n);
    return VOR_Decide(d.level, handle.ch0_work, handle.ch1_work, n);
}

}  // namespace

void vad_start(Detector& d, int32_t rate) {
    VOR_Init(d.level);
    VOR_SetFs(d.level);
    NRSS_BufInit(d.stream);
    NRSS_Init(d.suppressor, kSuppressionLevel, rate);
}

void vad_init(Detector& d) {
    log_sink()(kLogInfo, kLogTag, "VoiceActivityDetectionInit() Version %s", version_text);
    vad_start(d, kStartRate);
    d.nrss_reinit_pending = 1;
}

void vad_configure_rate(Detector& d, VadHandle& handle, uint32_t rate) {
    log_sink()(kLogInfo, kLogTag, "VoiceActivityDetectionSamplingRateConfig %d",
               static_cast<int>(rate));
    handle.sampling_rate = rate;
    VOR_SetFs(d.level);
    if (d.nrss_reinit_pending == 1) {
        NRSS_Init(d.suppressor, kSuppressionLevel, static_cast<int32_t>(rate));
        d.nrss_reinit_pending = 0;
    }
}

void vad_configure_frame_length(VadHandle& handle, uint32_t length) {
    log_sink()(kLogInfo, kLogTag, "VoiceActivityDetectionFrameLengthConfig %d",
               static_cast<int>(length));
    // Lengths count all samples of a frame; only mono has one channel.
    handle.frame_length = static_cast<int16_t>(length >> (handle.channel_mode == 1 ? 0 : 1));
}

void vad_configure_channel_mode(VadHandle& handle, int mode) {
    log_sink()(kLogInfo, kLogTag, "VoiceActivityDetectionChannelModeConfig %d", mode);
    handle.channel_mode = static_cast<uint16_t>(mode);
}

int vad_execute(Detector& d, VadHandle& handle) {
    const int n = handle.frame_length;
    if (n < 1 || n > KORVANE_VAD_MAX_FRAME) {
        return 0;
    }
    switch (handle.channel_mode) {
        case 1:
            return process_mono(d, handle, n);
        case 2:
            return process_interleaved(d, handle, n);
        case 3:
            return process_planar(d, handle, n);
        default:
            return 0;
    }
}

const char* vad_version() { return version_text; }

}  // namespace korvane
