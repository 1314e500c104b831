#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "leveling/batch/batch.h"
#include "leveling/facts/run_facts.h"
#include "leveling/inputs/plan.h"
#include "leveling/watch/arrivals.h"
#include "leveling/watch/done_program.h"
#include "leveling/watch/folder_watch.h"
#include "leveling/watch/metrics.h"
#include "leveling/watch/service_manager.h"
#include "leveling/watch/watch_signals.h"

namespace quorvane {

/** What a watch is to do. */
struct WatchRequest {
    std::string folder;
    std::string output_dir;  // empty: outputs go beside their inputs
    double settle_s = 2;
    unsigned jobs = 1;
    JobOptions options;
    std::string on_done;  // a program for each finished file; empty: none
    std::string metrics;  // a file; empty: none

    /**
     * Of these files, the ones that are to be leveled, with their outputs; what is known of a file
     * without work stands in PlannedFile::known. Files that are left out are not in the answer.
     */
    std::function<std::vector<PlannedFile>(const std::vector<std::string>& paths)> plan;
};

/** Hears what happens in a watch. All calls come from one thread. */
class WatchObserver {
  public:
    virtual ~WatchObserver() = default;

    /** The folder is watched; why: "" or why it is searched at intervals. */
    virtual void watching(const std::string& why_search) = 0;

    /** The folder of inputs or outputs is gone until watching() is called again. */
    virtual void gone(const std::string& folder) = 0;

    /** A disk is full; nothing is begun until resumed(). */
    virtual void waiting(const FileFacts& facts) = 0;
    virtual void resumed() = 0;
    virtual void started(const std::string& input) = 0;
    virtual void messages(const std::string& text) = 0;
    virtual void finished(const FileFacts& facts) = 0;

    /** Something besides a file failed, in a sentence. */
    virtual void problem(const std::string& text) = 0;

    /** SIGHUP: the log is to be opened again. */
    virtual void reopen() = 0;

    /** The process was asked to end; so many files are being worked on and will be dropped. */
    virtual void stopping(std::size_t running) = 0;
};

/**
 * Levels the recordings of a folder as they arrive, until a signal ends it. What is done already is
 * known by the records of the output folders, so that a watch which was killed goes on where it
 * was.
 */
class Watcher : private BatchObserver {
  public:
    /** Throws std::runtime_error. */
    Watcher(WatchRequest request, WatchObserver& observer);
    ~Watcher() override;
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    /** Returns after SIGTERM or SIGINT. Throws what went wrong with the watch as a whole. */
    void run();

  private:
    using Clock = std::chrono::steady_clock;

    /** A file in the batch, and how things were when it was put there. */
    struct Begun {
        PlannedFile file;
        FileState input;
        unsigned absences = 0;
    };

    /** What the batch's thread reports to ours. */
    struct Event {
        enum class Kind { Started, Messages, Finished, Problem } kind;
        std::size_t index = 0;
        std::string text;
        FileFacts facts = {};
    };

    void started(std::size_t index) override;
    void messages(std::size_t index, const std::string& text) override;
    void finished(std::size_t index, const FileFacts& facts) override;
    void tick() override;
    void post(Event event);

    void loop();
    void sleep(std::vector<pollfd>& polled) const;
    int milliseconds_to_sleep() const;
    void take_signals();
    void take_events();
    void take_finished(std::size_t index, const FileFacts& facts);
    bool is_put_off(const Begun& begun, const FileFacts& facts);
    void report(const PlannedFile& file, const FileFacts& facts);
    void check_folders();
    void take_arrivals();
    void plan_some();
    void begin_some();
    void begin(const PlannedFile& file);
    bool has_room() const;
    void tell_state();
    void ping();
    std::size_t queue_length() const;

    const WatchRequest request_;
    WatchObserver& observer_;
    const MountedFolder output_mount_;
    Batch batch_;
    WatchSignals signals_;
    ServiceManager manager_;
    Arrivals arrivals_;
    FolderWatch watch_;
    std::unique_ptr<DoneProgram> done_program_;

    std::mutex mutex_;  // guards the next
    std::vector<Event> events_;
    std::atomic<bool> batch_ended_{false};
    std::atomic<Clock::rep> last_tick_{0};

    // Of the loop's thread alone:
    std::optional<FolderWatch::Source> told_source_;
    std::string told_why_;
    bool outputs_gone_ = false;
    bool told_stop_ = false;
    std::vector<std::string> due_;       // complete and not yet planned
    std::deque<PlannedFile> queue_;      // planned and not yet in the batch
    std::map<std::size_t, Begun> work_;  // in the batch
    std::size_t running_ = 0;
    std::map<std::string, FileState> outputs_;  // made by this watch
    std::vector<std::string> after_return_;     // failed because a folder was gone
    unsigned absences_ = 0;                     // how often a folder went
    std::optional<PlannedFile> without_room_;   // the first file that a full disk stopped
    Clock::time_point next_try_;                // of it
    Clock::time_point latest_try_;
    WatchMetrics metrics_;
    bool state_changed_ = true;
    bool metrics_failed_ = false;
    Clock::time_point state_told_;
    Clock::time_point pinged_;
};

}  // namespace quorvane
