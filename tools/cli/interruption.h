/**
 * What SIGHUP, SIGINT, SIGQUIT and SIGTERM do: temporary files go, worker processes end, the
 * progress bar is wiped off, and the tool exits with 128 plus the signal's number. In a live stream
 * the first signal ends the stream instead, as if its sender had closed it.
 */
#ifndef KORVANE_TOOLS_CLI_INTERRUPTION_H
#define KORVANE_TOOLS_CLI_INTERRUPTION_H

#include <sys/types.h>

namespace korvane::tool {

/** Once, at the start. A signal that is ignored, as nohup does it, stays so. */
void handle_interruptions();

/** In a worker process: signals end it and do nothing else. */
void leave_interruptions_to_parent();

/** From now on the first signal ends the stream that is being read. */
void let_interruption_end_stream();

/** The signal that has ended the live stream, or 0. */
int interrupted_by();

/** Whether standard error's line holds a progress bar. */
void wipe_line_on_interruption(bool holds_bar);

/** A worker process in one of the slots 0..255, or 0 for none. */
void end_on_interruption(int slot, pid_t worker);

}  // namespace korvane::tool

#endif
