/** What a decoder says on standard error, kept from there. */
#ifndef KORVANE_TOOLS_AUDIO_DECODER_MESSAGES_H
#define KORVANE_TOOLS_AUDIO_DECODER_MESSAGES_H

namespace korvane::tool {

class DecoderMessages {
  public:
    DecoderMessages();
    ~DecoderMessages();
    DecoderMessages(const DecoderMessages&) = delete;
    DecoderMessages& operator=(const DecoderMessages&) = delete;

    /** While one lives, standard error leads here. For calls of the decoder alone, one thread at a time. */
    class Diversion {
      public:
        explicit Diversion(const DecoderMessages& messages);
        ~Diversion();
        Diversion(const Diversion&) = delete;
        Diversion& operator=(const Diversion&) = delete;

      private:
        int standard_error_;
    };

    /** Whether libmpg123 has said that it left out a part of the sound. What stands before a first whole frame, and
     * tags, are no sound. */
    bool tell_of_damage() const;

  private:
    int file_;
};

}  // namespace korvane::tool

#endif
