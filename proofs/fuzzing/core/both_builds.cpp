// One fuzzer of the core: each program in both builds, and any difference is a crash.

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "program.h"

namespace korvane_plain {
const std::vector<uint8_t>& run_program(Calls calls, const uint8_t* input, size_t size);
}

std::vector<char> messages;

void require(bool kept, const char* promise) {
    if (!kept) {
        fprintf(stderr, "broken: %s\n", promise);
        abort();
    }
}

// The host's own log function; both builds find it.
extern "C" __attribute__((visibility("default"), format(printf, 3, 4))) int __android_log_print(
    int priority, const char* tag, const char* format, ...) {
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start began it
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    require(length >= 0 && length < static_cast<int>(sizeof text), "a message is one short line");
    messages.insert(messages.end(), text, text + length);
    messages.insert(messages.end(), tag, tag + priority);
    return length;
}

// What the sanitizer keeps of every allocation is little, for there are many.
extern "C" const char* __asan_default_options() {
    return "quarantine_size_mb=1:malloc_context_size=2:detect_leaks=0";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    const auto& vector = korvane::run_program(Calls::KORVANE_CALLS, input, size);
    const auto& plain = korvane_plain::run_program(Calls::KORVANE_CALLS, input, size);
    if (vector != plain) {
        const auto [at, other] =
            std::mismatch(vector.begin(), vector.end(), plain.begin(), plain.end());
        fprintf(stderr, "the builds differ: byte %td of %zu and %zu\n", at - vector.begin(),
                vector.size(), plain.size());
        abort();
    }
    return 0;
}
