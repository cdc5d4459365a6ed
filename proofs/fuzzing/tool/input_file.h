/** Bytes as the files and streams that the tool reads. */
#ifndef KORVANE_PROOFS_FUZZING_INPUT_FILE_H
#define KORVANE_PROOFS_FUZZING_INPUT_FILE_H

#include <fuzzer/FuzzedDataProvider.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/** Ends the process, for the fuzzer to see, unless it holds. */
inline void require(bool holds, const char* what) {
    if (!holds) {
        fprintf(stderr, "broken: %s\n", what);
        abort();
    }
}

/** A regular file in memory. */
class InputFile {
  public:
    explicit InputFile(std::string_view bytes) : descriptor_(memfd_create("input", MFD_CLOEXEC)) {
        require(
            write(descriptor_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "the input fits into memory");
    }
    ~InputFile() { close(descriptor_); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

  private:
    int descriptor_;
};

/** Puts a pipe that holds all of the bytes and has no writer any more in the place of standard
 * input. */
inline void pipe_to_standard_input(std::string_view bytes) {
    int ends[2];
    require(pipe(ends) == 0 &&
                write(ends[1], bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "the input fits into a pipe");
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    close(ends[1]);
}

#endif
