#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "cli/commands/results.h"
#include "cli/options/settings.h"
#include "cli/terminal/screen.h"
#include "leveling/batch/batch.h"
#include "leveling/batch/stop_signals.h"
#include "leveling/facts/run_facts.h"
#include "leveling/inputs/plan.h"
#include "leveling/report/result_files.h"

namespace quorvane {

/** Adds what the plan noted to the facts of a file that was, or would be, worked on. */
void add_note(const PlannedFile& file, FileFacts& facts);

/** Elapsed time in seconds, by a clock that nothing sets back. */
double seconds_since(std::chrono::steady_clock::time_point start);

/**
 * Runs a batch, shows it on the screen and keeps the facts of its files, in the plan's order. The
 * batch knows nothing of the terminal: it calls the functions of BatchObserver.
 */
class ShownBatch : public BatchObserver {
  public:
    /** All of them must outlive it. Entries of the plan are cleared as their files end. */
    ShownBatch(const Settings& settings,
               std::vector<PlannedFile>& plan,
               ResultFiles& results,
               Screen& screen,
               JsonLines& lines);

    /** Reports what is known already, then works, then reports what was never begun. */
    void run();

    /** The signal that stopped the run; 0 when none did. */
    int signal() const { return signals_.signal(); }

    // Of BatchObserver, with the batch's index of a file. Called on the thread of run().
    void started(std::size_t index) override;

    void progress(std::size_t index, double fraction) override { file(index).fraction = fraction; }

    void messages(std::size_t index, const std::string& text) override;
    void finished(std::size_t index, const FileFacts& facts) override;
    void tick() override;

  private:
    using Clock = std::chrono::steady_clock;

    struct File {
        bool begun = false;
        bool ended = false;
        double weight = 0;    // of its share in the whole bar, bytes
        double fraction = 0;  // of its work that is done, 0 to 1
        Clock::time_point started;
    };

    // A pass over the plan: what is known is reported, the rest is queued and worked on.
    void work_through();
    void queue_files();
    void add_group(const std::vector<std::size_t>& places);
    // Files that changed less than --settle seconds ago: waits for them, up to a minute in all.
    bool settle();
    void look_into(const std::vector<std::size_t>& places, const std::vector<bool>& young);
    void tell_missing_fences(const FileFacts& facts);
    void end(std::size_t place, const FileFacts& facts);
    void draw();

    // What may become of an output that exists, and whether --max-failures is reached.
    Batch::Existing existing_of(const PlannedFile& planned) const;
    bool enough_failures() const;

    /** Of an index of the batch, which numbers only the files that were queued. */
    File& file(std::size_t index) { return files_[places_[index]]; }

    const Settings& settings_;
    std::vector<PlannedFile>& plan_;
    ResultFiles& results_;
    Screen& screen_;
    JsonLines& lines_;
    SharedFailures shared_;
    Batch batch_;
    StopSignals signals_;
    std::vector<File> files_;
    std::vector<std::size_t> places_;   // in the plan, of the batch's files
    std::vector<std::size_t> running_;  // places in the plan
    const Clock::time_point begun_ = Clock::now();
    bool fences_told_ = false;
    // Counts and weights (bytes) for the line of the whole batch.
    std::size_t finished_ = 0;
    std::size_t failures_ = 0;
    double finished_weight_ = 0;
    double all_weight_ = 0;
};

}  // namespace quorvane
