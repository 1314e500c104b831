#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"
#include "leveling/worker/child_process.h"
#include "leveling/worker/delivery.h"
#include "leveling/worker/job.h"

namespace quorvane {

/**
 * The parent's side of the work on one file, or on the files of a group: the worker, and what
 * becomes of the outputs. Start it from the thread that waits for it: a worker ends with the thread
 * that started it.
 */
class WorkerProcess {
  public:
    /**
     * Starts the worker. The deliveries have begun, and each job writes into its part. Throws
     * std::system_error.
     */
    WorkerProcess(std::vector<Job> jobs, std::vector<std::unique_ptr<Delivery>> deliveries);

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
     * Waits for the process, delivers the outputs and returns what became of each file. A worker
     * that died, or whose answer does not fit its job, its output or its end, is a failure with its
     * cause. Of a group, nothing is delivered unless all of it can be. Call once, at the end, from
     * any thread; it waits for the disk.
     */
    std::vector<FileFacts> finish();

    /** What the engine wrote to its output and error streams, without progress. */
    const std::string& messages() const { return process_.messages(); }

  private:
    std::string contradiction(const WorkResult& result, const Job& job);
    std::string problem_of(std::size_t place);
    void fail_group(std::vector<FileFacts>& all) const;
    void require_unchanged(std::vector<FileFacts>& all) const;
    std::vector<InputRecord> others_of(std::size_t place) const;

    std::vector<Job> jobs_;
    std::vector<std::unique_ptr<Delivery>> deliveries_;
    ChildProcess process_;
    double progress_ = 0;
    std::vector<WorkResult> results_;  // in the order of the jobs
};

}  // namespace quorvane
