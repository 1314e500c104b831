#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * Runs a program for each finished file, one after the other, on a thread of its own. It is started
 * without a shell and without arguments, with an empty standard input; its output goes to our error
 * stream. The results are in its environment:
 *
 *   QUORVANE_INPUT, QUORVANE_OUTPUT   absolute paths
 *   QUORVANE_OUTCOME                  "leveled", "copied" or "failed"
 *   QUORVANE_CAUSE                    why it failed or was copied
 *   QUORVANE_DURATION                 in seconds
 *   QUORVANE_LUFS_BEFORE, QUORVANE_LUFS_AFTER, QUORVANE_TRUE_PEAK_AFTER   where measured
 *
 * After kLimit it is killed, with its children that kept its process group.
 */
class DoneProgram {
  public:
    static constexpr std::chrono::seconds kLimit{60};

    /** failed is called on the thread, with a sentence for the log. */
    DoneProgram(std::string program,
                std::function<void(const std::string&)> failed,
                std::chrono::milliseconds limit = kLimit);

    /** Waits until the program was run for every file that was added. */
    ~DoneProgram();
    DoneProgram(const DoneProgram&) = delete;
    DoneProgram& operator=(const DoneProgram&) = delete;

    void add(const FileFacts& facts);

    /** Drops the files whose turn has not come; returns how many. */
    std::size_t drop();

  private:
    void work();
    std::string run(const FileFacts& facts) const;

    const std::string program_;
    const std::function<void(const std::string&)> failed_;
    const std::chrono::milliseconds limit_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<FileFacts> queue_;
    bool ending_ = false;
    std::thread thread_;  // last: it uses all of the above
};

}  // namespace quorvane
