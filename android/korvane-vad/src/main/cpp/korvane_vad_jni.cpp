// The native methods of com.korvane.vad.KorvaneVad. The class checks all arguments, keeps one instance
// in a process and lets one call in at a time; nothing is checked again here.

#include <jni.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "korvane_vad.h"

namespace {

VadHandle vad;
int16_t frame[2 * KORVANE_VAD_MAX_FRAME];

/** Samples in a frame, all channels together. */
int frame_samples() { return vad.frame_length * (vad.channel_mode == 1 ? 1 : 2); }

/** Processes `frame` and leaves the cleaned samples in it, in its own layout. */
jboolean process_frame() {
    const int speech = VoiceActivityDetectionExe(&vad);
    if (vad.channel_mode != 2) {
        std::copy_n(vad.ch0_work, vad.frame_length, frame);
    }
    if (vad.channel_mode == 3) {
        std::copy_n(vad.ch1_work, vad.frame_length, frame + vad.frame_length);
    }
    return speech == 1 ? JNI_TRUE : JNI_FALSE;
}

/** Starts a new stream; rate in Hz, mode 1..3, samples in a frame of all channels together. */
void start(JNIEnv* /*env*/, jclass /*type*/, jint rate, jint mode, jint samples) {
    VoiceActivityDetectionInit();
    VoiceActivityDetectionChannelModeConfig(&vad, mode);
    VoiceActivityDetectionSamplingRateConfig(&vad, static_cast<uint32_t>(rate));
    VoiceActivityDetectionFrameLengthConfig(&vad, static_cast<uint32_t>(samples));
    VoiceActivityDetectionInOutConfig(&vad, frame);
}

/** Reads a frame from one array and writes it cleaned to another, which may be the same. */
jboolean process_array(JNIEnv* env, jclass /*type*/, jshortArray noisy, jshortArray cleaned) {
    env->GetShortArrayRegion(noisy, 0, frame_samples(), frame);
    const jboolean speech = process_frame();
    env->SetShortArrayRegion(cleaned, 0, frame_samples(), frame);
    return speech;
}

/** Cleans the frame that begins at a byte offset in a direct buffer; its address may be odd. */
jboolean process_buffer(JNIEnv* env, jclass /*type*/, jobject buffer, jint offset) {
    char* const samples = static_cast<char*>(env->GetDirectBufferAddress(buffer)) + offset;
    const size_t size = static_cast<size_t>(frame_samples()) * sizeof frame[0];
    std::memcpy(frame, samples, size);
    const jboolean speech = process_frame();
    std::memcpy(samples, frame, size);
    return speech;
}

jstring version(JNIEnv* env, jclass /*type*/) {
    return env->NewStringUTF(VoiceActivityDetectionVersion());
}

template <typename Function>
JNINativeMethod method(const char* name, const char* signature, Function* function) {
    // Only the desktop's jni.h asks for strings that may be written to.
    return {const_cast<char*>(name), const_cast<char*>(signature),
            reinterpret_cast<void*>(function)};
}

}  // namespace

/** Binds the native methods when the library is loaded: a name or signature that does not match the
 * class fails here, not at the first call. */
extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* machine, void* /*reserved*/) {
    JNIEnv* env = nullptr;
    if (machine->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) != JNI_OK) {
        return JNI_ERR;
    }
    jclass type = env->FindClass("com/korvane/vad/KorvaneVad");
    if (type == nullptr) {
        return JNI_ERR;
    }
    const JNINativeMethod methods[] = {
        method("nativeStart", "(III)V", start),
        method("nativeProcess", "([S[S)Z", process_array),
        method("nativeProcess", "(Ljava/nio/ByteBuffer;I)Z", process_buffer),
        method("nativeVersion", "()Ljava/lang/String;", version),
    };
    const jint count = sizeof methods / sizeof methods[0];
    return env->RegisterNatives(type, methods, count) == JNI_OK ? JNI_VERSION_1_6 : JNI_ERR;
}
