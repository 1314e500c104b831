#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "cli/facts/run_facts.h"
#include "cli/worker/job.h"

namespace cli {

/**
 * The parent's side of one worker. Call it from the main thread only: a worker ends with the thread
 * that started it.
 */
class WorkerProcess {
  public:
    /** Starts the worker. Throws std::system_error. */
    explicit WorkerProcess(const Job& job);
    ~WorkerProcess();
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;

    /** Descriptors to poll for reading; -1 once at their end. */
    int events() const { return events_; }

    int output() const { return output_; }

    /** Read what is there without waiting. */
    void read_events();
    void read_output();

    double progress() const { return progress_; }

    bool at_end() const { return events_ < 0 && output_ < 0; }

    void send_signal(int signal) const;

    /**
     * Waits for the process and tells what became of the file. A worker that died is a failure with
     * its cause. Call once, at the end.
     */
    FileFacts finish();

    /** What the engine wrote to its output and error streams, without progress. */
    const std::string& messages() const { return messages_; }

  private:
    void clear_up() const;
    void take_event(const std::string& line);

    Job job_;
    pid_t pid_ = -1;
    int job_end_ = -1;  // held open: its end tells the worker that we are gone
    int not_told_ = 0;  // why the job could not be written to it, an errno
    int events_ = -1;
    int output_ = -1;
    std::string event_text_;
    std::string messages_;
    double progress_ = 0;
    std::optional<FileFacts> facts_;
};

}  // namespace cli
