/** An open file, pipe, terminal or socket to read from. */
#ifndef KORVANE_TOOLS_AUDIO_INPUT_DESCRIPTOR_H
#define KORVANE_TOOLS_AUDIO_INPUT_DESCRIPTOR_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace korvane::tool {

/** As messages call it: "standard input" for "-". */
std::string input_name(const std::string& name);

class InputDescriptor {
  public:
    /** Opens a file, or standard input for "-". Throws a Failure, as every call does. */
    explicit InputDescriptor(const std::string& name);
    ~InputDescriptor();
    InputDescriptor(const InputDescriptor&) = delete;
    InputDescriptor& operator=(const InputDescriptor&) = delete;

    int get() const { return descriptor_; }
    /** Not a regular file: what is there is all that is known. */
    bool live() const { return live_; }
    /** Bytes of a regular file from where it stands. */
    int64_t size() const { return size_; }
    /** Whether interrupt_live_input has ended it, or what is now a copy of it. */
    bool interrupted() const;

    /** Waits for `count` bytes and returns how many there are; fewer at the end or where reading
     * failed, which check() then tells. */
    std::size_t read(void* bytes, std::size_t count);
    /** The same, from `offset` bytes behind where a regular file stood, without moving on. */
    std::size_t read_at(int64_t offset, void* bytes, std::size_t count);
    /** Throws if reading has failed. */
    void check() const;

    /** Waits for the first four bytes of a pipe or a socket, without taking them. 0 where there are
     * fewer or it is neither. */
    uint32_t peek_magic() const;
    /** Replaces a live input by a nameless temporary file with everything that it gives. */
    void spool();

  private:
    void find_out_what_it_is();
    void set_live(bool live);
    template <typename Read>
    std::size_t read_whole(std::size_t count, Read read_piece);

    std::string name_;
    int descriptor_ = -1;
    bool live_ = false;
    bool cut_off_ = false;  // interrupted before all of it was copied
    int64_t start_ = 0;
    int64_t size_ = 0;
    int error_ = 0;
};

/** All of a file, or of standard input for "-". Throws a Failure. */
std::string text_of_file(const std::string& name);

}  // namespace korvane::tool

#endif
