/** The signals that end the tool (SIGHUP, SIGINT, SIGQUIT, SIGTERM), and how to put them off. */
#ifndef KORVANE_TOOLS_FILES_ENDING_SIGNALS_H
#define KORVANE_TOOLS_FILES_ENDING_SIGNALS_H

#include <csignal>

namespace korvane::tool {

/** Makes them call `handler`, with all of them blocked meanwhile; what is ignored, as under nohup,
 * stays ignored. A call that one interrupts is not started again.
 *
 * @param flags  more of sigaction's
 */
void on_ending_signals(void (*handler)(int), int flags);

/** Defers them while it lives. */
class EndingSignalsDeferred {
  public:
    EndingSignalsDeferred();
    ~EndingSignalsDeferred();
    EndingSignalsDeferred(const EndingSignalsDeferred&) = delete;
    EndingSignalsDeferred& operator=(const EndingSignalsDeferred&) = delete;

  private:
    sigset_t before_{};
};

}  // namespace korvane::tool

#endif
