#include "cli/commands/merge_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "cli/commands/batch_command.h"
#include "cli/commands/results.h"
#include "cli/options/settings.h"
#include "cli/terminal/screen.h"
#include "cli/terminal/summary.h"
#include "leveling/archive/result_lines.h"
#include "leveling/inputs/plan.h"
#include "leveling/inputs/run_file_check.h"
#include "leveling/report/result_files.h"
#include "leveling/words/text.h"
#include "leveling/worker/look.h"

/*
 * Reports many runs as one: their lines of JSON are read, sorted in the order of one run, and shown
 * with the same sentences, tables and files. A file that one run planned and none worked on
 * counts as unfinished, and a line that cannot be read makes the merge a failure: a task that was
 * lost must not look like success.
 */

namespace quorvane {
namespace {

/** What the merged runs read and wrote: nothing of it may be written to now. */
std::vector<PlannedFile> recordings(const ResultLines& found) {
    std::vector<PlannedFile> files;
    for (std::size_t i = 0; i < found.size(); ++i) {
        for (const std::string& path : {found.input(i), found.output(i)}) {
            if (!path.empty()) {
                files.push_back({path, {}, "made by an earlier run", {}});
            }
        }
    }
    return files;
}

/** Reads the results of all runs in their order; returns the exit status. */
int merge(const Settings& settings) {
    ResultLines found;
    for (const std::string& path : settings.paths) {
        found.add(path);
    }
    found.sort();
    check_run_files(settings, recordings(found), settings.paths);
    check_facts_paths(settings, found.size());
    Screen screen(settings);
    JsonLines lines(settings);
    ResultFiles results(settings, found.size(), listening_part_of);
    double work_s = 0;
    for (std::size_t i = 0; i < found.size(); ++i) {
        FileFacts facts = found.facts(i);
        if (facts.outcome == Outcome::Planned) {
            facts.outcome = Outcome::Interrupted;
            facts.cause = "planned, but no run reported it";
        }
        // Work, not waiting: the runs were side by side.
        work_s += facts.elapsed_s;
        lines.write(facts);
        results.add(i, std::move(facts));
    }
    SharedFailures shared;
    for (const FileFacts& facts : results.files()) {
        shared.add(facts);
    }
    for (const FileFacts& facts : results.files()) {
        if (is_failure(facts.outcome) && !shared.report(facts, screen)) {
            screen.error(finished_line(facts, screen));
        }
    }
    tell_results(settings, results, work_s, 0, screen);
    for (const std::string& problem : found.problems()) {
        screen.error(fmt::format("quorvane: {}", printable(problem)));
    }
    if (found.size() == 0) {
        screen.error("quorvane: the files named hold no results; name files that --json wrote");
    }
    const int status = status_of(settings, results, lines, screen);
    const auto& files = results.files();
    const bool unfinished = std::any_of(files.begin(), files.end(), [](const FileFacts& facts) {
        return facts.outcome == Outcome::Interrupted;
    });
    const bool incomplete = unfinished || !found.problems().empty() || found.size() == 0;
    return incomplete ? kSomeFailed : status;
}

}  // namespace

int merge_main(int argc, const char* const* argv) {
    return run_command(argc - 1, argv + 1, merge, Command::Merge);
}

}  // namespace quorvane
