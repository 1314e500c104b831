#include "cli/commands/batch_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/trim.hpp>
#include <chrono>
#include <filesystem>
#include <utility>
#include <vector>

#include "cli/commands/pipe_command.h"
#include "cli/commands/results.h"
#include "cli/commands/watch_command.h"
#include "cli/options/settings.h"
#include "cli/terminal/note_lines.h"
#include "cli/terminal/screen.h"
#include "cli/terminal/summary.h"
#include "leveling/archive/shards.h"
#include "leveling/batch/batch.h"
#include "leveling/batch/preflight.h"
#include "leveling/batch/settling.h"
#include "leveling/batch/stop_signals.h"
#include "leveling/batch/work_list.h"
#include "leveling/facts/run_facts.h"
#include "leveling/inputs/plan.h"
#include "leveling/report/result_files.h"
#include "leveling/storage/open_files.h"
#include "leveling/storage/scratch.h"
#include "leveling/words/text.h"
#include "leveling/worker/look.h"

/*
 * The order of a run: read the command line, find the files, name their outputs, look whether all
 * of it can be read and written, and only then begin to work. What is wrong with the command as a
 * whole ends it with status 2 before anything was touched; what is wrong with one file costs that
 * file.
 *
 * The batch knows nothing of the terminal: ShownBatch hears what becomes of the files and draws it.
 * Each failure is told once, when it happens, on the error stream. The table, the counts, the notes
 * and what an interrupt left come at the end. JSON on the standard output comes line by line, so
 * that another program can read along; a line that cannot be written makes the run a failure, a
 * reader that went away does not.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/** Adds what the plan noted to the facts of a file that was, or would be, worked on. */
void add_note(const PlannedFile& file, FileFacts& facts) {
    if (!file.note.empty() && !is_failure(facts.outcome) && facts.outcome != Outcome::Skipped) {
        facts.notes.push_back(file.note);
    }
}

/** Shows a batch on the screen and keeps the facts of its files, in the plan's order. */
class ShownBatch : public BatchObserver {
  public:
    ShownBatch(const Settings& settings,
               std::vector<PlannedFile>& plan,
               ResultFiles& results,
               Screen& screen,
               JsonLines& lines)
        : settings_(settings),
          plan_(plan),
          results_(results),
          screen_(screen),
          lines_(lines),
          batch_(settings.jobs, options_of(settings), *this),
          signals_(batch_),
          files_(plan.size()) {
        for (std::size_t i = 0; i < plan.size(); ++i) {
            // A little for each file, so that many small ones count too.
            files_[i].weight = static_cast<double>(plan[i].bytes + kBytesPerFile);
            all_weight_ += files_[i].weight;
        }
    }

    /** Reports what is known already, then works, then reports what was never begun. */
    void run() {
        work_through();
        if (settle()) {
            work_through();
        }
        for (std::size_t i = 0; i < plan_.size(); ++i) {
            if (!files_[i].ended) {
                FileFacts facts = never_begun(plan_[i]);
                facts.cause = signal() != 0 ? "stopped" : facts.cause;
                end(i, facts);
            }
        }
    }

    /** The signal that stopped the run; 0 when none did. */
    int signal() const { return signals_.signal(); }

    void started(std::size_t index) override {
        running_.push_back(places_[index]);
        file(index).started = Clock::now();
        file(index).begun = true;
    }

    void progress(std::size_t index, double fraction) override { file(index).fraction = fraction; }

    void messages(std::size_t /*index*/, const std::string& text) override {
        if (settings_.verbose) {
            screen_.line(printable_lines(
                boost::algorithm::trim_right_copy_if(text, [](char c) { return c == '\n'; })));
        }
    }

    void finished(std::size_t index, const FileFacts& facts) override {
        const std::size_t place = places_[index];
        tell_missing_fences(facts);
        running_.erase(std::remove(running_.begin(), running_.end(), place), running_.end());
        // Files that were cancelled because of it end here as well, and say why.
        const bool had_enough = enough_failures();
        end(place, had_enough && !files_[place].begun ? never_begun(plan_[place]) : facts);
        if (enough_failures() && !had_enough) {
            for (std::size_t i = 0; i < places_.size(); ++i) {
                if (!file(i).begun) {
                    batch_.cancel(i);
                }
            }
        }
    }

    void tick() override {
        if (signals_.take_resize()) {
            screen_.resized();
        }
        if (screen_.wants_drawing() && !running_.empty()) {
            draw();
        }
    }

  private:
    struct File {
        bool begun = false;
        bool ended = false;
        double weight = 0;
        double fraction = 0;
        Clock::time_point started;
    };

    /** A file that is only measured is made for no destination. */
    static JobOptions options_of(const Settings& settings) {
        JobOptions options = job_options(settings);
        if (settings.analyze) {
            options.destination.clear();
        }
        return options;
    }

    /** Works on all files that are not at their end and have settled. */
    void work_through() {
        shared_ = {};
        for (std::size_t i = 0; i < plan_.size(); ++i) {
            if (plan_[i].known && !files_[i].ended) {
                shared_.add(*plan_[i].known);
            }
        }
        for (std::size_t i = 0; i < plan_.size(); ++i) {
            if (plan_[i].known && !files_[i].ended) {
                end(i, *plan_[i].known);
            }
        }
        bool has_group = false;
        for (std::size_t i = 0; i < plan_.size() && !enough_failures(); ++i) {
            const PlannedFile& planned = plan_[i];
            if (planned.settling || files_[i].ended) {
                continue;
            }
            if (planned.group != 0) {
                has_group = true;
            } else {
                places_.push_back(i);
                batch_.add(planned.input, planned.output, existing_of(planned), planned.found);
            }
        }
        if (has_group && !enough_failures()) {
            add_group();
        }
        batch_.close();
        batch_.run();
        screen_.clear();
    }

    Batch::Existing existing_of(const PlannedFile& planned) const {
        return settings_.force ? Batch::Existing::Replace
               : planned.renew ? Batch::Existing::Renew
                               : Batch::Existing::Keep;
    }

    /** The tracks that are leveled together, and their mix. */
    void add_group() {
        std::vector<Batch::GroupFile> group;
        for (std::size_t i = 0; i < plan_.size(); ++i) {
            const PlannedFile& planned = plan_[i];
            if (planned.group != 0 && !planned.settling && !files_[i].ended) {
                places_.push_back(i);
                group.push_back({planned.input, planned.output, existing_of(planned), planned.found,
                                 planned.mix});
            }
        }
        batch_.add_group(group);
    }

    /**
     * Waits for the files that changed a moment ago and looks into them. Returns whether there is
     * something left to do.
     */
    bool settle() {
        std::vector<std::size_t> places;
        std::vector<std::string> inputs;
        for (std::size_t i = 0; i < plan_.size(); ++i) {
            if (plan_[i].settling) {
                places.push_back(i);
                inputs.push_back(plan_[i].input);
            }
        }
        if (places.empty() || signal() != 0 || enough_failures()) {
            return false;
        }
        screen_.line(fmt::format(
            "waiting up to a minute for {}{}, changed less than {:g} s ago",
            printable(inputs.front()),
            inputs.size() == 1 ? std::string() : fmt::format(" and {} more", inputs.size() - 1),
            settings_.settle_s));
        const std::vector<bool> young =
            wait_until_settled(inputs, settings_.settle_s, [this] { return signal() != 0; });
        look_into(places, young);
        return signal() == 0;
    }

    /** What is done for all other files before the work begins. */
    void look_into(const std::vector<std::size_t>& places, const std::vector<bool>& young) {
        std::vector<PlannedFile> settled;
        for (std::size_t i = 0; i < places.size(); ++i) {
            PlannedFile& file = plan_[places[i]];
            file.settling = false;
            file.bytes = state_of(file.input).size;
            if (young[i]) {
                FileFacts facts = never_begun(file);
                facts.outcome = Outcome::Failed;
                facts.cause =
                    "it is still being changed; give the same command again once it is complete";
                file.known = std::make_shared<FileFacts>(facts);
            }
            settled.push_back(file);
        }
        judge_outputs(settings_, settled);
        preflight(settings_, settled, Keep::Failures);
        for (std::size_t i = 0; i < places.size(); ++i) {
            plan_[places[i]] = std::move(settled[i]);
        }
    }

    File& file(std::size_t index) { return files_[places_[index]]; }

    /** Once in a run: the kernel is the same for all files. */
    void tell_missing_fences(const FileFacts& facts) {
        if (settings_.verbose && !facts.unfenced.empty() && !fences_told_) {
            fences_told_ = true;
            screen_.line(
                fmt::format("note: this kernel does not limit the {} of workers; a damaged file "
                            "that takes over "
                            "a decoder could reach more than itself",
                            fmt::join(facts.unfenced, " and ")));
        }
    }

    bool enough_failures() const {
        return settings_.max_failures != 0 && failures_ >= settings_.max_failures;
    }

    static FileFacts never_begun(const PlannedFile& file) {
        FileFacts facts;
        facts.input = file.input;
        facts.output = file.output;
        facts.cause = "not begun, as too many files had failed";
        return facts;
    }

    void end(std::size_t place, const FileFacts& facts) {
        files_[place].ended = true;
        finished_weight_ += files_[place].weight;
        ++finished_;
        failures_ += is_failure(facts.outcome) ? 1 : 0;
        FileFacts told = facts;
        add_note(plan_[place], told);
        if (shared_.report(told, screen_)) {
            lines_.write(told);
        } else {
            tell_finished(settings_, told, files_.size() == 1 ? Files::One : Files::Several,
                          screen_, lines_);
        }
        results_.add(place, std::move(told));
        plan_[place] = {};  // an archive has many files, and the results hold what is known of each
    }

    void draw() {
        std::vector<Screen::Bar> bars;
        // By bytes: a long file moves the bar as far as it takes time.
        double whole = finished_weight_;
        for (std::size_t place : running_) {
            const File& file = files_[place];
            whole += file.fraction * file.weight;
            bars.push_back({fs::path(plan_[place].input).filename().string(), file.fraction,
                            seconds_since(file.started)});
        }
        screen_.draw(bars, {fmt::format("{} of {} files{}", finished_, files_.size(),
                                        signal() ? ", stopping" : ""),
                            whole / all_weight_, seconds_since(begun_)});
    }

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
    std::size_t finished_ = 0;
    std::size_t failures_ = 0;
    double finished_weight_ = 0;
    double all_weight_ = 0;
};

/** Moves what was not worked on behind the results of the files. */
void add_others(WorkList& work, ResultFiles& results) {
    std::size_t index = work.files.size();
    for (SearchProblem& problem : work.missing) {
        results.add(index++, facts_of(std::move(problem), Outcome::Failed));
    }
    for (SearchProblem& link : work.passed_over) {
        results.add(index++, facts_of(std::move(link), Outcome::Skipped));
    }
    work.missing = {};
    work.passed_over = {};
}

/** What a dry run tells: every file, then the whole. */
int tell_plan(const Settings& settings,
              WorkList& work,
              const Preflight& checked,
              Screen& screen,
              JsonLines& lines) {
    ResultFiles results(settings, work.size(), listening_part_of);
    SharedFailures shared;
    for (const PlannedFile& file : work.files) {
        shared.add(*file.known);
    }
    for (std::size_t i = 0; i < work.files.size(); ++i) {
        add_note(work.files[i], *work.files[i].known);
        if (shared.report(*work.files[i].known, screen)) {
            lines.write(*work.files[i].known);
        } else {
            tell_finished(settings, *work.files[i].known, Files::Several, screen, lines);
        }
        results.add(i, std::move(*work.files[i].known));
        work.files[i].known.reset();
    }
    add_others(work, results);
    print_earlier(results.files(), screen);
    screen.line(fmt::format("{}; {} of audio to work on", counts(results.files()),
                            clock_text(checked.audio_s)));
    print_failures(results.files(), screen);
    print_unsupported(work.unsupported, screen);
    results.commit();
    return status_of(settings, results, lines, screen);
}

/** How many files this process has open at a time at most. */
std::size_t open_files(const Settings& settings, std::size_t files) {
    constexpr std::size_t kOwn = 32;       // streams, log, JSON, report, locks
    constexpr std::size_t kForWorker = 3;  // its pipes
    constexpr std::size_t kForLook = 6;    // both ends of them, while many are started at once
    constexpr std::size_t kMostLooks = 16;
    return kOwn + std::max(kForWorker * std::min<std::size_t>(settings.jobs, files),
                           kForLook * std::min(kMostLooks, files));
}

/** The whole run; returns the exit status. */
int run(const Settings& settings) {
    if (!settings.watch.empty()) {
        return run_watch(settings);
    }
    if (is_pipe(settings)) {
        return run_pipe(settings);
    }
    const auto start = Clock::now();
    WorkList work = work_list(settings);
    const std::size_t count = work.size();
    check_facts_paths(settings, count);
    Screen screen(settings);  // opens the log, so what the run writes is checked by now
    JsonLines lines(settings);
    for (const SearchProblem& problem : work.missing) {
        tell_finished(settings, facts_of(problem, Outcome::Failed), Files::Several, screen, lines);
    }
    for (const SearchProblem& link : work.passed_over) {
        tell_finished(settings, facts_of(link, Outcome::Skipped), Files::Several, screen, lines);
    }
    require_open_files(open_files(settings, work.files.size()));
    const Preflight checked =
        preflight(settings, work.files, settings.dry_run ? Keep::All : Keep::Failures);
    for (const std::string& note : checked.notes) {
        screen.error(fmt::format("note: {}", note));
    }
    if (settings.dry_run) {
        return tell_plan(settings, work, checked, screen, lines);
    }
    remove_stale_scratch_directories();
    ResultFiles results(settings, count, listening_part_of);
    ShownBatch batch(settings, work.files, results, screen, lines);
    batch.run();
    add_others(work, results);
    tell_results(settings, results, seconds_since(start), batch.signal(), screen);
    print_unsupported(work.unsupported, screen);
    const int status = status_of(settings, results, lines, screen);
    return batch.signal() ? kSignalBase + batch.signal() : status;
}

}  // namespace

int batch_main(int argc, const char* const* argv) {
    return run_command(argc, argv, run);
}

}  // namespace quorvane
