/** A process that works on one recording, and what comes back from it. */
#ifndef KORVANE_TOOLS_BATCH_WORKER_H
#define KORVANE_TOOLS_BATCH_WORKER_H

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>

#include "tools/batch/finding.h"

namespace korvane::tool {

/** Of one recording, whatever it took. */
struct Outcome {
    bool failed = false;
    Finding finding;
    std::string error;  ///< the whole message
};

/** Where a worker stands, in memory that it shares with its parent. */
struct WorkerState {
    std::atomic<double> fraction;  ///< 0..1 of the recording, -1 not known
    std::atomic<double> seconds;   ///< of sound
};

class Worker {
  public:
    /**
     * Starts the process. Throws a Failure where that cannot be.
     *
     * @param slot   0..255, in which an interruption finds it
     * @param state  shared memory
     */
    Worker(int slot, const std::string& name, const Options& options, bool several,
           WorkerState* state);
    /** Ends the process if it has not ended. */
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    int slot() const { return slot_; }
    /** To wait on: readable when the worker has something to say or has ended. */
    int descriptor() const { return pipe_; }
    /** Takes what is there, without waiting if the descriptor is readable; true at the end. */
    bool receive();
    /** After the end. */
    Outcome outcome();

  private:
    int slot_;
    std::string name_;
    pid_t process_ = 0;
    int pipe_ = -1;
    std::string received_;
};

}  // namespace korvane::tool

#endif
