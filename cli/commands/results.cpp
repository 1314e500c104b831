#include "cli/commands/results.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <exception>
#include <system_error>

#include "Common/version.h"
#include "cli/commands/batch_command.h"
#include "cli/options/help.h"
#include "cli/terminal/finding_lines.h"
#include "cli/terminal/note_lines.h"
#include "cli/terminal/summary.h"
#include "leveling/advice/explain.h"
#include "leveling/advice/finding_words.h"
#include "leveling/facts/file_error.h"
#include "leveling/publish/verdict.h"
#include "leveling/storage/staged_output.h"
#include "leveling/words/text.h"

/*
 * What a run says, and with which status it ends. The screen, the JSON and the report hear of every
 * file in one place each, so that no outcome is reported in one and forgotten in another.
 */

namespace quorvane {

void JsonLines::write(const FileFacts& facts) {
    write(nlohmann::ordered_json::object(), &facts);
}

// After the first line that could not be written nothing more is tried: the rest would have a gap.
void JsonLines::write(const nlohmann::ordered_json& front, const FileFacts* facts) {
    if (wanted_ && error_ == 0) {
        nlohmann::ordered_json document = front;
        // With --no-curves the document has no curves over time.
        if (facts) {
            document.update(facts_document(*facts, settings_.destinations, settings_.curves));
        }
        // Flushed line by line, so that a reader sees each file as it ends.
        const std::string line = dump(document) + "\n";
        const bool written =
            fwrite(line.data(), 1, line.size(), stdout) == line.size() && fflush(stdout) == 0;
        error_ = written ? 0 : errno;
    }
}

int JsonLines::error() const {
    // A reader such as head has had enough: that is its right, and no failure.
    return error_ == EPIPE ? 0 : error_;
}

// A folder that cannot be written fails all of its files, of which an archive has thousands.
void SharedFailures::add(const FileFacts& facts) {
    if (is_failure(facts.outcome) && is_folder_cause(facts.cause)) {
        ++count_of_[facts.cause];
    }
}

bool SharedFailures::report(const FileFacts& facts, Screen& screen) {
    const auto shared = count_of_.find(facts.cause);
    // A cause that one file alone has is printed with that file.
    if (!is_failure(facts.outcome) || shared == count_of_.end() || shared->second < 2) {
        return false;
    }
    if (reported_.insert(facts.cause).second) {
        screen.error(shared_failure_line(shared->second, facts, screen));
    }
    // The caller prints nothing more about this file.
    return true;
}

namespace {

/** What follows a file's line: ". Ready for podcast, but: the right side is silent." */
std::string standing(const Settings& settings, const FileFacts& facts) {
    // Neither measured nor part of a conversation: nothing is known about its sound.
    if (!facts.before && !facts.conversation) {
        return "";
    }
    // A track is never published alone, so no target applies to it.
    if (!settings.destinations.empty() && !facts.is_track()) {
        return ". " + printable(readiness(facts, settings.destinations, Face::CommandLine));
    }
    const std::string found = objections_text(facts);
    return found.empty() ? "" : ". Found: " + printable(found) + ".";
}

}  // namespace

void tell_finished(const Settings& settings,
                   const FileFacts& facts,
                   Files files,
                   Screen& screen,
                   JsonLines& lines) {
    // Failures go to the standard error, also with --quiet.
    if (is_failure(facts.outcome)) {
        screen.error(finished_line(facts, screen));
    } else if (facts.earlier_arithmetic) {
        // The summary counts these in one line: after an update that may be a whole archive.
        // One file has room for its verdict; of many each gets a line.
    } else if (facts.outcome != Outcome::Interrupted && facts.before && files == Files::One) {
        screen.line(printable(verdict(facts, settings.destinations, Face::CommandLine)));
        screen.line(finished_line(facts, screen));
    } else if (facts.outcome != Outcome::Interrupted) {
        screen.line(finished_line(facts, screen) + standing(settings, facts));
    }
    lines.write(facts);
}

// The verdict first, then the numbers, then what needs attention: who reads one line reads that.
void tell_results(
    const Settings& settings, ResultFiles& results, double elapsed_s, int signal, Screen& screen) {
    const FactsList& files = results.files();
    if (settings.measure && files.size() > 1) {
        screen.line("\n" + printable(verdict(files, settings.destinations, Face::CommandLine)));
    }
    if (!settings.quiet) {
        const std::string table = loudness_table(files, screen.columns());
        if (!table.empty()) {
            screen.line("\n" + table);
        }
    }
    // A single file's line has said it all, unless it was interrupted.
    if (files.size() != 1 || signal != 0) {
        print_summary(files, elapsed_s, screen);
    } else {
        print_notes(files, screen);
    }
    print_findings(files, screen);
    // The result files get their final names only now; page is "" without a report.
    const std::string page = results.commit();
    if (!page.empty()) {
        screen.line(fmt::format("report: {}", printable(page)));
    }
}

namespace {

/** False when a path is left out or the list cannot be written, which is reported. */
bool write_failed_list(const Settings& settings, const FactsList& files, Screen& screen) {
    const char end = settings.null ? '\0' : '\n';
    bool complete = true;
    try {
        // Under a temporary name until commit(), so that a list that is cut short is never read.
        StagedText list(settings.failed);
        for (const FileFacts& facts : files) {
            // A mix fails with its tracks, of which one is its input.
            const bool is_mix = facts.conversation && facts.conversation->mix;
            if (!is_failure(facts.outcome) || is_mix) {
                continue;
            }
            if (facts.input.find(end) != std::string::npos) {
                screen.error(
                    fmt::format("quorvane: --failed {} leaves out {}, whose name holds a line end; "
                                "--null writes it",
                                printable(settings.failed), printable(facts.input)));
                complete = false;
            } else {
                list.add(facts.input + end);
            }
        }
        list.commit();
    } catch (const std::system_error& error) {
        screen.error(fmt::format("quorvane: the list --failed {} cannot be written: {}",
                                 printable(settings.failed), error.code().message()));
        complete = false;
    }
    return complete;
}

}  // namespace

// Everything that was lost counts as a failure, also a log or a result file: with status 0 a script
// may rely on all that it requested.
int status_of(const Settings& settings,
              const ResultFiles& results,
              const JsonLines& lines,
              Screen& screen) {
    for (const std::string& problem : results.problems()) {
        screen.error(fmt::format("quorvane: {}", printable(problem)));
    }
    if (lines.error() != 0) {
        screen.error(fmt::format("quorvane: the JSON facts could not be written: {}",
                                 std::strerror(lines.error())));
    }
    const bool listed =
        settings.failed.empty() || write_failed_list(settings, results.files(), screen);
    // Lines that the screen could not write to the log or the output.
    const std::vector<std::string> lost = screen.problems();
    for (const std::string& problem : lost) {
        screen.error(fmt::format("quorvane: {}", printable(problem)));
    }
    const auto& files = results.files();
    const bool failed = std::any_of(files.begin(), files.end(), [](const FileFacts& facts) {
        return is_failure(facts.outcome);
    });
    if (failed || lines.error() != 0 || !results.problems().empty() || !lost.empty() || !listed) {
        return kSomeFailed;
    }
    // What was not measured was skipped or planned. Only an output that was kept, whatever it is,
    // then misses a destination; not one that an earlier arithmetic made for it.
    const bool ready = std::all_of(files.begin(), files.end(), [&](const FileFacts& facts) {
        const bool kept =
            facts.outcome == Outcome::Skipped && !facts.output.empty() && !facts.earlier_arithmetic;
        if (facts.is_track()) {
            return true;
        }
        return facts.before || facts.after ? is_ready(facts, settings.destinations) : !kept;
    });
    if (!ready && !settings.destinations.empty()) {
        return kNotReady;
    }
    // With --strict one finding that is a problem is enough.
    return settings.strict && std::any_of(files.begin(), files.end(), has_problem) ? kNotReady
                                                                                   : kAllDone;
}

namespace {

/** Prints an answer. Returns the exit status: a full device must not look like success. */
int print_answer(const std::string& text) {
    if (fwrite(text.data(), 1, text.size(), stdout) == text.size() && fflush(stdout) == 0) {
        return kAllDone;
    }
    fprintf(stderr, "quorvane: the standard output cannot be written: %s\n", std::strerror(errno));
    return kSomeFailed;
}

}  // namespace

// Two kinds of errors end here: a command line that is wrong as a whole is status 2 and points to
// the help, any other is status 1 with its cause.
int run_command(int argc,
                const char* const* argv,
                const std::function<int(const Settings&)>& run,
                Command command) {
    const bool merges = command == Command::Merge;
    // For the widths of signs on the screen; numbers keep their decimal point.
    setlocale(LC_CTYPE, "");
    try {
        // A merge levels nothing, so no file of defaults is read for it.
        const Settings settings = merges ? parse_command_line(argc, argv)
                                         : parse_command_line(argc, argv, standard_config_places());
        if (settings.help) {
            return print_answer(merges ? merge_help_text() : help_text());
        }
        if (settings.explain) {
            return print_answer(explanation(*settings.explain));
        }
        if (settings.version) {
            return print_answer(fmt::format("quorvane {}\n", kVersion));
        }
        for (const std::string& ignored : settings.ignored_config) {
            fprintf(stderr, "note: %s\n", printable(ignored).c_str());
        }
        if (settings.show_config) {
            return print_answer(config_text(settings));
        }
        return run(settings);
    } catch (const UsageError& error) {
        fprintf(stderr, "quorvane: %s\nTry 'quorvane %s--help'.\n", printable(error.what()).c_str(),
                merges ? "merge " : "");
        return kWrongUsage;
    } catch (const std::exception& error) {
        fprintf(stderr, "quorvane: %s\n", printable(cause_of(error)).c_str());
        return kSomeFailed;
    }
}

}  // namespace quorvane
