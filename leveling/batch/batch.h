#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"
#include "leveling/storage/scratch.h"
#include "leveling/worker/job.h"

namespace quorvane {

class WorkerProcess;

/**
 * Hears what becomes of a batch's files. An index is what Batch::add returned. All calls come from
 * the thread that is in Batch::run; they may call the batch's functions.
 */
class BatchObserver {
  public:
    virtual ~BatchObserver() = default;

    /** A worker began with the file. Not called for a file that was cancelled before. */
    virtual void started(std::size_t /*index*/) {}

    /** The file's fraction done, 0 to 1, at most once for each whole percent. */
    virtual void progress(std::size_t /*index*/, double /*fraction*/) {}

    /** What the engine wrote to its output and error streams; comes before finished. */
    virtual void messages(std::size_t /*index*/, const std::string& /*text*/) {}

    /** Called exactly once for every file that was added. */
    virtual void finished(std::size_t /*index*/, const FileFacts& /*facts*/) {}

    /** Called several times a second while a file is worked on, for clocks and bars. */
    virtual void tick() {}
};

/**
 * Works on files, so many at a time, each in a worker process of its own, so that a file that
 * crashes the engine costs itself only.
 *
 * A worker is this program itself, started with kWorkerWord alone (see worker/job.h): a program
 * with a Batch begins its main() by handing such a call to worker_main().
 *
 * run() starts the workers, and a worker ends with the THREAD that started it: that thread has to
 * live until run() returns. Every other function may be called from any thread at any time; each
 * wakes run() through a pipe, so that no request waits for a file to make progress.
 */
class Batch {
  public:
    /** How urgently stop() asks. */
    enum class Stop {
        CleanUp,  // workers remove their files and end
        Now       // workers are killed; what they leave is removed by run()
    };

    /**
     * At most `jobs` files are worked on at the same time. Makes the run's private directory.
     * Throws std::runtime_error when it or the pipe cannot be made.
     */
    Batch(unsigned jobs, JobOptions options, BatchObserver& observer);
    ~Batch();
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    /**
     * Puts a file at the end of the queue and returns its index, counted from 0. An empty output
     * requests a measurement only. The facts of the file will name both paths as given here.
     */
    std::size_t add(const std::string& input, const std::string& output);

    /**
     * The same, for this file's output whatever the options say of one that exists. Renew replaces
     * an output of ours that is still as it was found.
     */
    enum class Existing { Keep, Renew, Replace };
    std::size_t add(const std::string& input, const std::string& output, Existing existing);

    /** The same of an output that was looked at before: how it was found. */
    std::size_t add(const std::string& input,
                    const std::string& output,
                    Existing existing,
                    const FileState& found);

    /** One file of a group. */
    struct GroupFile {
        std::string input;  // of a mix: the first track
        std::string output;
        Existing existing = Existing::Keep;
        FileState found;
        bool mix = false;
    };

    /**
     * Puts the tracks of one conversation, and their mix, at the end of the queue: one worker
     * levels them together, and all are done or none. Returns the index of the first; the others
     * follow.
     */
    std::size_t add_group(const std::vector<GroupFile>& files);

    /**
     * Stops one file and the group that it belongs to: it ends as Interrupted, without an output.
     * Nothing happens when it is finished or was never added.
     */
    void cancel(std::size_t index);

    /**
     * Stops all files, those of the queue and those that are added later too. May be called from a
     * signal handler.
     */
    void stop(Stop how);

    /**
     * run() returns when all files are finished. More may be added after that, for another run().
     */
    void close();

    /** Works on the files until the batch is closed or stopped and none is left. */
    void run();

  private:
    using Clock = std::chrono::steady_clock;

    struct Entry {
        std::size_t index = 0;
        std::string input;
        std::string output;
        Existing existing{};
        FileState found;
        std::string new_folder;
        Clock::time_point not_before;  // another process was at the output: try again then
        bool mix = false;
        std::vector<Entry> others = {};  // of the group that it is the first of
    };

    struct Running {
        Entry entry;
        std::vector<FileState> inputs;  // of the group, as they were when the worker started
        Clock::time_point started;
        std::unique_ptr<WorkerProcess> worker;
        double told_fraction = 0.0;
        bool cancelled = false;
        std::future<std::vector<FileFacts>> facts = {};  // valid once the worker has ended
    };

    void wake() const;
    void drain() const;
    bool ended();
    void take_requests();
    void start_more();
    bool take_entry(Entry& entry);
    void start(Entry entry);
    Job job_of(const Entry& entry, const std::vector<const Entry*>& group) const;
    void wait();
    void tell_progress();
    void collect();
    void begin_to_finish(Running& running);
    void finish(Running& ended);
    void judge_end(const Running& ended, std::size_t place, FileFacts& facts) const;
    void tell_finished(const Entry& entry, FileFacts facts);
    void end_without_worker(const Entry& entry, FileFacts facts);
    static std::vector<const Entry*> group_of(const Entry& entry);

    const unsigned jobs_;
    const JobOptions options_;
    BatchObserver& observer_;
    ScratchDirectory scratch_;
    int wake_[2] = {-1, -1};

    std::mutex mutex_;  // guards the four below
    std::deque<Entry> queue_;
    std::set<std::size_t> cancelled_;
    std::size_t added_ = 0;
    bool closed_ = false;

    std::atomic<int> stop_{0};  // 0, or 1 + the Stop that was asked for
    int stop_sent_ = 0;         // the same, as the running workers were told
    std::vector<Running> running_;
};

}  // namespace quorvane
