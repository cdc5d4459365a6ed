// The native methods of com.korvane.vad.KorvaneStream. The class checks what it is given and lets one call in at a time;
// the library checks configurations. A stream lies in a direct buffer of the class's, which the virtual machine frees.

#include <jni.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "korvane_stream.h"

namespace {

jmethodID add_result_method;
jmethodID add_event_method;

/** Whom the library's callbacks tell, during a call. */
struct Told {
    JNIEnv* env;
    jobject stream;
    bool failed;  ///< out of memory: nothing more can be told, and the exception is the machine's
};

/** What is in a buffer: this, and then the stream, aligned. */
struct Memory {
    Told told;
    KorvaneStream* stream;
    jint channels;
};

constexpr size_t kAlignment = KORVANE_STREAM_ALIGNMENT;
constexpr jint kPiece = 512;        // samples per channel that are copied at a time
constexpr size_t kMostDelay = 867;  // samples per channel that come at the end

Memory& memory_of(JNIEnv* env, jobject buffer) {
    return *static_cast<Memory*>(env->GetDirectBufferAddress(buffer));
}

template <size_t kCount>
void tell(void* user, jmethodID method, const jvalue (&arguments)[kCount]) {
    Told& told = static_cast<Memory*>(user)->told;
    if (!told.failed) {
        told.env->CallVoidMethodA(told.stream, method, arguments);
        told.failed = told.env->ExceptionCheck() != JNI_FALSE;
    }
}

jboolean boolean(bool x) { return x ? JNI_TRUE : JNI_FALSE; }

void add_result(void* user, const KorvaneStreamResult* r) {
    jvalue arguments[6];
    arguments[0].j = r->position;
    arguments[1].i = r->length;
    arguments[2].z = boolean(r->speech != 0);
    arguments[3].f = r->score;
    arguments[4].f = r->level_db;
    arguments[5].f = r->noise_db;
    tell(user, add_result_method, arguments);
}

void add_event(void* user, const KorvaneStreamEvent* e) {
    jvalue arguments[4];
    arguments[0].z = boolean(e->kind == KORVANE_SPEECH_END);
    arguments[1].j = e->position;
    arguments[2].j = e->start;
    arguments[3].z = boolean(e->open != 0);
    tell(user, add_event_method, arguments);
}

jstring text_of(JNIEnv* env, int32_t error) {
    return error == KORVANE_OK ? nullptr : env->NewStringUTF(korvane_stream_error_text(error));
}

// Configurations as the class keeps them: f(number in the class's arrays, field) for each.
template <class F>
void for_numbers(KorvaneStreamConfig& c, const F& f) {
    int32_t* const fields[] = {&c.sampling_rate, &c.channels,      &c.frame_length, &c.decision,
                               &c.restore_level, &c.onset_ms,      &c.hangover_ms,  &c.min_gap_ms,
                               &c.min_speech_ms, &c.max_speech_ms, &c.pad_start_ms, &c.pad_end_ms};
    jsize i = 0;
    for (int32_t* const field : fields) {
        f(i++, *field);
    }
}
template <class F>
void for_thresholds(KorvaneStreamConfig& c, const F& f) {
    float* const fields[] = {&c.enter_score, &c.stay_score, &c.enter_db, &c.stay_db};
    jsize i = 0;
    for (float* const field : fields) {
        f(i++, *field);
    }
}

jstring defaults(JNIEnv* env, jclass /*type*/, jint rate, jint channels, jintArray numbers,
                 jfloatArray thresholds) {
    KorvaneStreamConfig config;
    const int32_t error = korvane_stream_defaults(&config, rate, channels);
    if (error == KORVANE_OK) {
        for_numbers(config, [&](jsize i, int32_t x) { env->SetIntArrayRegion(numbers, i, 1, &x); });
        for_thresholds(config,
                       [&](jsize i, float x) { env->SetFloatArrayRegion(thresholds, i, 1, &x); });
    }
    return text_of(env, error);
}

jint size(JNIEnv* /*env*/, jclass /*type*/) {
    return static_cast<jint>(sizeof(Memory) + kAlignment + korvane_stream_size());
}

jstring init(JNIEnv* env, jclass /*type*/, jobject buffer, jintArray numbers,
             jfloatArray thresholds) {
    Memory& memory = memory_of(env, buffer);
    const auto end = reinterpret_cast<uintptr_t>(&memory + 1);
    memory.stream =
        reinterpret_cast<KorvaneStream*>((end + kAlignment - 1) / kAlignment * kAlignment);
    KorvaneStreamConfig config;
    korvane_stream_defaults(&config, 16000, 1);  // all of which is replaced but the record's size
    for_numbers(config, [&](jsize i, int32_t& x) { env->GetIntArrayRegion(numbers, i, 1, &x); });
    for_thresholds(config,
                   [&](jsize i, float& x) { env->GetFloatArrayRegion(thresholds, i, 1, &x); });
    memory.channels = config.channels;
    config.user = &memory;
    config.on_result = add_result;
    config.on_event = add_event;
    return text_of(env, korvane_stream_init(memory.stream, korvane_stream_size(), &config));
}

jint delay(JNIEnv* env, jclass /*type*/, jobject buffer) {
    return korvane_stream_delay(memory_of(env, buffer).stream);
}

/** The library's calls for a type of sample, and the virtual machine's for arrays of it. */
struct Shorts {
    using Sample = int16_t;
    using Array = jshortArray;
    static constexpr auto kProcess = korvane_stream_process;
    static constexpr auto kEnd = korvane_stream_end;
    static constexpr auto kRead = &JNIEnv::GetShortArrayRegion;
    static constexpr auto kWrite = &JNIEnv::SetShortArrayRegion;
};
struct Floats {
    using Sample = float;
    using Array = jfloatArray;
    static constexpr auto kProcess = korvane_stream_process_float;
    static constexpr auto kEnd = korvane_stream_end_float;
    static constexpr auto kRead = &JNIEnv::GetFloatArrayRegion;
    static constexpr auto kWrite = &JNIEnv::SetFloatArrayRegion;
};

/** n samples per channel, in pieces: nothing may be told while the machine's own arrays are held. read(first, values,
 * piece) brings samples, all channels together, and write(first, values, piece) takes cleaned ones. */
template <class Kind, class Read, class Write>
void process_pieces(JNIEnv* env, jobject self, Memory& memory, jint n, const Read& read,
                    const Write& write) {
    memory.told = {env, self, false};
    typename Kind::Sample piece[2 * kPiece];
    for (jint at = 0; at < n && !memory.told.failed; at += kPiece) {
        const jint count = std::min(kPiece, n - at);
        const jsize first = at * memory.channels;
        const jsize values = count * memory.channels;
        read(first, values, piece);
        Kind::kProcess(memory.stream, piece, piece, count);
        if (!memory.told.failed) {
            write(first, values, piece);
        }
    }
}

template <class Kind>
void process(JNIEnv* env, jobject self, jobject buffer, typename Kind::Array samples,
             typename Kind::Array cleaned, jint n) {
    using Sample = typename Kind::Sample;
    process_pieces<Kind>(
        env, self, memory_of(env, buffer), n,
        [&](jsize first, jsize values, Sample* piece) {
            (env->*Kind::kRead)(samples, first, values, piece);
        },
        [&](jsize first, jsize values, const Sample* piece) {
            if (cleaned != nullptr) {
                (env->*Kind::kWrite)(cleaned, first, values, piece);
            }
        });
}

/** Samples of direct buffers, from byte offsets on, which may be odd. */
void process_buffers(JNIEnv* env, jobject self, jobject buffer, jobject samples, jint begin,
                     jobject cleaned, jint cleaned_begin, jint n) {
    const auto* const in = static_cast<const char*>(env->GetDirectBufferAddress(samples)) + begin;
    char* const out =
        cleaned == nullptr
            ? nullptr
            : static_cast<char*>(env->GetDirectBufferAddress(cleaned)) + cleaned_begin;
    const auto bytes = [](jsize values) { return static_cast<size_t>(values) * sizeof(int16_t); };
    process_pieces<Shorts>(
        env, self, memory_of(env, buffer), n,
        [&](jsize first, jsize values, int16_t* piece) {
            std::memcpy(piece, in + bytes(first), bytes(values));
        },
        [&](jsize first, jsize values, const int16_t* piece) {
            if (out != nullptr) {
                std::memcpy(out + bytes(first), piece, bytes(values));
            }
        });
}

template <class Kind>
void end(JNIEnv* env, jobject self, jobject buffer, typename Kind::Array cleaned) {
    Memory& memory = memory_of(env, buffer);
    memory.told = {env, self, false};
    typename Kind::Sample rest[2 * kMostDelay];
    Kind::kEnd(memory.stream, rest);
    if (cleaned != nullptr && !memory.told.failed) {
        (env->*Kind::kWrite)(cleaned, 0, env->GetArrayLength(cleaned), rest);
    }
}

void reset(JNIEnv* env, jclass /*type*/, jobject buffer) {
    korvane_stream_reset(memory_of(env, buffer).stream);
}

jstring version(JNIEnv* env, jclass /*type*/) {
    return env->NewStringUTF(korvane_stream_version());
}

template <typename Function>
JNINativeMethod method(const char* name, const char* signature, Function* function) {
    // Only the desktop's jni.h asks for strings that may be written to.
    return {const_cast<char*>(name), const_cast<char*>(signature),
            reinterpret_cast<void*>(function)};
}

}  // namespace

/** Binds the native methods and finds the class's own when the library is loaded: a name or signature that
 * does not match the class fails here, not at the first call. */
extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* machine, void* /*reserved*/) {
    JNIEnv* env = nullptr;
    if (machine->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) != JNI_OK) {
        return JNI_ERR;
    }
    jclass type = env->FindClass("com/korvane/vad/KorvaneStream");
    if (type == nullptr) {
        return JNI_ERR;
    }
    add_result_method = env->GetMethodID(type, "addResult", "(JIZFFF)V");
    add_event_method =
        add_result_method == nullptr ? nullptr : env->GetMethodID(type, "addEvent", "(ZJJZ)V");
    if (add_event_method == nullptr) {
        return JNI_ERR;
    }
    const JNINativeMethod methods[] = {
        method("nativeDefaults", "(II[I[F)Ljava/lang/String;", defaults),
        method("nativeSize", "()I", size),
        method("nativeInit", "(Ljava/nio/ByteBuffer;[I[F)Ljava/lang/String;", init),
        method("nativeDelay", "(Ljava/nio/ByteBuffer;)I", delay),
        method("nativeProcess", "(Ljava/nio/ByteBuffer;[S[SI)V", process<Shorts>),
        method("nativeProcess", "(Ljava/nio/ByteBuffer;[F[FI)V", process<Floats>),
        method("nativeProcess", "(Ljava/nio/ByteBuffer;Ljava/nio/Buffer;ILjava/nio/Buffer;II)V",
               process_buffers),
        method("nativeEnd", "(Ljava/nio/ByteBuffer;[S)V", end<Shorts>),
        method("nativeEnd", "(Ljava/nio/ByteBuffer;[F)V", end<Floats>),
        method("nativeReset", "(Ljava/nio/ByteBuffer;)V", reset),
        method("nativeVersion", "()Ljava/lang/String;", version),
    };
    const jint count = sizeof methods / sizeof methods[0];
    return env->RegisterNatives(type, methods, count) == JNI_OK ? JNI_VERSION_1_6 : JNI_ERR;
}
