#pragma once

#include "leveling/batch/batch.h"

/*
 * A signal handler may do next to nothing, so the handler here stores what came and tells the
 * batch, whose stop() is made for that. The worker processes ignore Ctrl-C, which a terminal sends
 * to all of them: their parent decides, and asks each of them to clean up.
 */

namespace quorvane {

/**
 * While it lives, SIGINT, SIGTERM and SIGHUP stop the batch: the first asks the workers to clean
 * up, the second kills them. A signal that the caller of the program ignores (nohup, a shell's
 * background job) stays ignored, and a reader that closed the standard output costs no file. One at
 * a time in a process.
 */
class StopSignals {
  public:
    explicit StopSignals(Batch& batch);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /** The signal that stopped the batch; 0 when none did. */
    int signal() const;

    /** True when the terminal's size changed since the last call. */
    bool take_resize() const;
};

}  // namespace quorvane
