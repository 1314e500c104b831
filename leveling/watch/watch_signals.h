#pragma once

#include "leveling/batch/batch.h"

namespace quorvane {

/**
 * While it lives, the first SIGTERM or SIGINT stops the batch so that it cleans up and the second
 * stops it at once, and SIGHUP is only counted. Each writes to a pipe, so that a poll() wakes up.
 * SIGPIPE and SIGIO are ignored. One at a time in a process.
 */
class WatchSignals {
  public:
    /** Throws std::system_error. */
    explicit WatchSignals(Batch& batch);
    ~WatchSignals();
    WatchSignals(const WatchSignals&) = delete;
    WatchSignals& operator=(const WatchSignals&) = delete;

    /** Readable after a signal. */
    int descriptor() const { return pipe_[0]; }

    /** Empties the pipe. */
    void drain() const;

    /** How often the process was asked to end. */
    int stops() const;

    /** Whether SIGHUP came since the last call. */
    bool take_hangup() const;

    /** Wakes the poll() on descriptor(); any thread may call it. */
    void wake() const;

  private:
    int pipe_[2] = {-1, -1};
};

}  // namespace quorvane
