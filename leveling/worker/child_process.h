#pragma once

#include <sys/types.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "leveling/worker/job.h"

namespace quorvane {

/**
 * A started worker as its parent sees it: two pipes, and an end. What it sends is not trusted: a
 * line and the messages kept are bounded, and it has ended when its process has, even if another
 * process still holds its pipes. Start it from a thread that lives as long as this: a worker ends
 * with the thread that started it.
 */
class ChildProcess {
  public:
    /** Throws std::system_error. */
    explicit ChildProcess(const std::vector<Job>& jobs);

    /** Ends a process that still runs: first by SIGTERM, and if that does not help by SIGKILL. */
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /** Descriptors to poll for reading; -1 once at their end. */
    int events() const { return events_; }

    int output() const { return output_; }

    /** Reads what is there without waiting; take is called with every event that is JSON. */
    void read_events(const std::function<void(const nlohmann::ordered_json&)>& take);
    void read_output();

    /** True when nothing more will come. To be followed by a last read of both. */
    bool at_end();

    void send_signal(int signal) const;

    /** Waits for the process and returns its status as waitpid does. */
    int wait();

    /** Why it gave no valid answer: how it ended, and its last message. */
    std::string cause_of_end();

    /** What it wrote to its output and error streams, the last part of it. */
    const std::string& messages() const { return messages_; }

  private:
    void start(const std::string& message);
    bool reap(int options);

    pid_t pid_ = -1;  // of a process that was not waited for
    int status_ = 0;
    int job_end_ = -1;       // held open: its end tells the worker that we are gone
    int send_error_ = 0;     // why the job could not be sent, an errno
    bool too_long_ = false;  // a line was
    int events_ = -1;
    int output_ = -1;
    std::string event_text_;
    std::string messages_;
};

}  // namespace quorvane
