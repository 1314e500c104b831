#include "cli/commands/batch_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include "cli/commands/pipe_command.h"
#include "cli/commands/results.h"
#include "cli/commands/shown_batch.h"
#include "cli/commands/watch_command.h"
#include "cli/options/settings.h"
#include "cli/terminal/note_lines.h"
#include "cli/terminal/screen.h"
#include "cli/terminal/summary.h"
#include "leveling/batch/preflight.h"
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
 * Each failure is reported once, when it happens, on the error stream. The table, the counts, the
 * notes and what an interrupt left come at the end. JSON on the standard output comes line by line,
 * so that another program can read along; a line that cannot be written makes the run a failure, a
 * reader that went away does not.
 */

namespace quorvane {
namespace {

using Clock = std::chrono::steady_clock;

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

// Also the entry of a watch and of a pipe: which of them is meant follows from the options.
int batch_main(int argc, const char* const* argv) {
    return run_command(argc, argv, run);
}

}  // namespace quorvane
