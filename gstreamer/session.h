/** Sound of one format on its way through the element: the stream, what is held back, what is silence. */
#ifndef KORVANE_GSTREAMER_SESSION_H
#define KORVANE_GSTREAMER_SESSION_H

#include <gst/base/gstadapter.h>
#include <gst/gst.h>

#include <vector>

#include "settings.h"

namespace korvane {

struct Format {
    int32_t rate, channels;
    bool is_float;  ///< 32-bit float; else 16-bit integers
    gsize frame_size() const { return static_cast<gsize>(channels) * (is_float ? 4 : 2); }
};

/** What goes on next. */
struct Piece {
    GstBuffer* buffer;  ///< the taker's
    GstClockTime time, duration;
    bool silence;  ///< to be muted, or a gap
};

class Session {
  public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /** Prepares for a format: allocates the stream, and room for what is held back. Returns null, or what is wrong with the settings. The
     * config's callbacks are called from put, hear, end and abandon. */
    const char* configure(const Settings& settings, const Format& format);
    bool is_configured() const { return stream_ != nullptr; }
    Silence silence() const { return silence_; }

    /** By how much sound goes on later than it came, in samples per channel. */
    int64_t latency() const { return clean_or_held() ? delay_ + hold_ : 0; }

    /** Begins anew: the first sample is of that time. */
    void begin(GstClockTime time);
    bool is_running() const { return running_; }
    /** Whether sound of that time goes on where the last one ended, but for jitter. */
    bool continues_at(GstClockTime time) const;

    /** Takes sound in. The buffer becomes the session's. False where its memory cannot be
     * read or does not hold whole frames. */
    bool put(GstBuffer* buffer);
    /** Listens only: for sound that goes on as it is. */
    bool hear(GstBuffer* buffer);
    bool goes_on_as_it_is() const { return !clean_or_held(); }
    /** The input is over: all that is inside can be taken. */
    void end();
    /** The input is over, and nobody wants what is inside. */
    void abandon();
    /** Hands out what is due; false where nothing is. */
    bool take(Piece& piece);

    /** To be told of events, in their order: they say where the silence lies. */
    void mark(const KorvaneStreamEvent& event);

    GstClockTime time_of(int64_t position) const;

  private:
    struct Mark {
        int64_t position;
        bool silence;  ///< from there on
    };
    bool clean_or_held() const { return clean_ || silence_ != kPass; }
    int64_t due() const;
    bool process(GstBuffer* buffer, bool keep_result);
    void hold_back(GstBuffer* buffer);

    KorvaneStream* stream_ = nullptr;
    GstAdapter* held_;
    Format format_{};
    bool clean_ = true;
    Silence silence_ = kPass;
    int64_t delay_ = 0;
    int64_t hold_ = 0;  ///< beyond the delay, so that a beginning is known before its sound goes on

    bool running_ = false;
    bool ended_ = false;
    GstClockTime begin_ = 0;
    int64_t in_ = 0;     ///< samples per channel so far
    int64_t out_ = 0;    ///< of those, gone on
    gsize to_drop_ = 0;  ///< bytes that come before the input
    bool quiet_ = true;  ///< at out_
    std::vector<Mark> marks_;
};

}  // namespace korvane

#endif
