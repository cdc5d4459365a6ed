// What the JNI layers share: native methods bound to their class when the library is loaded, so that a name or
// signature that does not match the class fails there, not at the first call.
#ifndef KORVANE_ANDROID_NATIVE_METHODS_H
#define KORVANE_ANDROID_NATIVE_METHODS_H

#include <jni.h>

#include <cstddef>

namespace korvane {

template <typename Function>
JNINativeMethod method(const char* name, const char* signature, Function* function) {
    // Only the desktop's jni.h asks for strings that may be written to.
    return {const_cast<char*>(name), const_cast<char*>(signature),
            reinterpret_cast<void*>(function)};
}

/** For JNI_OnLoad to return, of a class and all its native methods; find(env, type) finds what the layer
 * needs of the class besides, and says whether it is there. */
template <size_t kCount, class Find>
jint bind_methods(JavaVM* machine, const char* name, const JNINativeMethod (&methods)[kCount],
                  const Find& find) {
    JNIEnv* env = nullptr;
    if (machine->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) != JNI_OK) {
        return JNI_ERR;
    }
    jclass type = env->FindClass(name);
    if (type == nullptr || !find(env, type)) {
        return JNI_ERR;
    }
    return env->RegisterNatives(type, methods, static_cast<jint>(kCount)) == JNI_OK
               ? JNI_VERSION_1_6
               : JNI_ERR;
}

}  // namespace korvane

#endif
