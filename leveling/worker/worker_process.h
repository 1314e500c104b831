#pragma once

#include <memory>
#include <optional>
#include <string>

#include "leveling/facts/run_facts.h"
#include "leveling/worker/child_process.h"
#include "leveling/worker/delivery.h"
#include "leveling/worker/job.h"

namespace quorvane {

/**
 * The parent's side of the work on one file: the worker, and what becomes of its output. Start it
 * from the thread that waits for it: a worker ends with the thread that started it.
 */
class WorkerProcess {
  public:
    /**
     * Starts the worker. The delivery has begun, and the job writes into its part. Throws
     * std::system_error.
     */
    WorkerProcess(const Job& job, std::unique_ptr<Delivery> delivery);

    /** Descriptors to poll for reading; -1 once at their end. */
    int events() const { return process_.events(); }

    int output() const { return process_.output(); }

    /** Read what is there without waiting. */
    void read_events();

    void read_output() { process_.read_output(); }

    double progress() const { return progress_; }

    bool at_end() { return process_.at_end(); }

    void send_signal(int signal) const { process_.send_signal(signal); }

    /**
     * Waits for the process, delivers the output and returns what became of the file. A worker that
     * died, or whose answer does not fit its job, its output or its end, is a failure with its
     * cause. Call once, at the end, from any thread; it waits for the disk.
     */
    FileFacts finish();

    /** What the engine wrote to its output and error streams, without progress. */
    const std::string& messages() const { return process_.messages(); }

  private:
    std::string contradiction(const WorkResult& result);

    Job job_;
    std::unique_ptr<Delivery> delivery_;
    ChildProcess process_;
    double progress_ = 0;
    std::optional<WorkResult> result_;
};

}  // namespace quorvane
