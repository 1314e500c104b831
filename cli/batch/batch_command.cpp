#include "cli/batch/batch_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <sstream>
#include <utility>
#include <vector>

#include "Common/version.h"
#include "cli/batch/batch.h"
#include "cli/batch/stop_signals.h"
#include "cli/facts/run_facts.h"
#include "cli/inputs/find_files.h"
#include "cli/inputs/plan.h"
#include "cli/options/settings.h"
#include "cli/publish/verdict.h"
#include "cli/report/report.h"
#include "cli/storage/scratch.h"
#include "cli/storage/staged_output.h"
#include "cli/terminal/screen.h"
#include "cli/terminal/summary.h"
#include "cli/terminal/terminal_text.h"

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

namespace cli {
namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/** The lines of the text with all control characters but the line ends made visible. */
std::string printable_lines(const std::string& messages) {
    std::string text;
    std::istringstream lines(messages);
    for (std::string line; std::getline(lines, line);) {
        text += (text.empty() ? "" : "\n") + printable(line);
    }
    return text;
}

/** Facts as lines of JSON on the standard output, if that is asked for. */
class JsonLines {
  public:
    explicit JsonLines(const Settings& settings)
        : settings_(settings), wanted_(settings.json_on_standard_output() && !settings.dry_run) {}

    void write(const FileFacts& facts) {
        if (wanted_ && error_ == 0) {
            const std::string line = dump(facts_document(facts, settings_.destinations)) + "\n";
            const bool written =
                fwrite(line.data(), 1, line.size(), stdout) == line.size() && fflush(stdout) == 0;
            error_ = written ? 0 : errno;
        }
    }

    /** Of the first line that could not be written. A reader that left (| head) is none. */
    int error() const { return error_ == EPIPE ? 0 : error_; }

  private:
    const Settings& settings_;
    bool wanted_;
    int error_ = 0;
};

/** How many files a run has. */
enum class Files { One, Several };

/**
 * Tells one finished file on the screen and in the lines of JSON. The verdict on the only file of a
 * run comes first, here; that on several comes when all are finished.
 */
void tell_finished(const Settings& settings,
                   const FileFacts& facts,
                   Files files,
                   Screen& screen,
                   JsonLines& lines) {
    if (facts.outcome == Outcome::Failed) {
        screen.error(finished_line(facts, screen));
    } else if (facts.outcome != Outcome::Interrupted && facts.before && files == Files::One) {
        screen.line(printable(verdict(facts, settings.destinations)));
        screen.line(finished_line(facts, screen));
    } else if (facts.outcome != Outcome::Interrupted) {
        screen.line(finished_line(facts, screen) +
                    (settings.destinations.empty() || !facts.before
                         ? std::string()
                         : ". " + readiness(facts, settings.destinations)));
    }
    lines.write(facts);
}

/** Shows a batch on the screen and keeps the facts of its files, in the plan's order. */
class ShownBatch : public BatchObserver {
  public:
    ShownBatch(const Settings& settings,
               const std::vector<PlannedFile>& plan,
               Screen& screen,
               JsonLines& lines)
        : settings_(settings),
          plan_(plan),
          screen_(screen),
          lines_(lines),
          batch_(settings.jobs, job_options(settings), *this),
          signals_(batch_),
          files_(plan.size()) {
        for (std::size_t i = 0; i < plan.size(); ++i) {
            files_[i].facts.input = plan[i].input.string();
            files_[i].facts.output = plan[i].output.string();
            std::error_code ignored;
            const auto bytes = fs::file_size(plan[i].input, ignored);
            // A little for each file, so that many small ones count too.
            files_[i].weight = ignored ? 1.0 : static_cast<double>(bytes) + 65536.0;
            all_weight_ += files_[i].weight;
        }
    }

    /** Returns the facts of every planned file. */
    std::vector<FileFacts> run() {
        for (std::size_t i = 0; i < plan_.size(); ++i) {
            FileFacts& facts = files_[i].facts;
            if (plan_[i].skip.empty() && plan_[i].problem.empty()) {
                places_.push_back(i);
                batch_.add(facts.input, facts.output);
                continue;
            }
            const bool skipped = !plan_[i].skip.empty();
            facts.outcome = skipped ? Outcome::Skipped : Outcome::Failed;
            facts.cause = skipped ? plan_[i].skip : plan_[i].problem;
            end(files_[i]);
        }
        batch_.close();
        batch_.run();
        screen_.clear();
        std::vector<FileFacts> facts;
        for (File& file : files_) {
            facts.push_back(std::move(file.facts));
        }
        return facts;
    }

    /** The signal that stopped the run; 0 when none did. */
    int signal() const { return signals_.signal(); }

    void started(std::size_t index) override {
        running_.push_back(&file(index));
        running_.back()->started = Clock::now();
    }

    void progress(std::size_t index, double fraction) override { file(index).fraction = fraction; }

    void messages(std::size_t /*index*/, const std::string& text) override {
        if (settings_.verbose) {
            screen_.line(printable_lines(text));
        }
    }

    void finished(std::size_t index, const FileFacts& facts) override {
        File& ended = file(index);
        running_.erase(std::remove(running_.begin(), running_.end(), &ended), running_.end());
        ended.facts = facts;
        end(ended);
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
        FileFacts facts;
        double weight = 0;
        double fraction = 0;
        Clock::time_point started;
    };

    static JobOptions job_options(const Settings& settings) {
        JobOptions options;
        options.tuning = settings.tuning;
        options.measure = settings.measure;
        options.replace = settings.force;
        options.keep_mtime = settings.keep_mtime;
        options.strict = settings.strict;
        options.audio_stream = settings.audio_stream;
        options.audio_codec = settings.audio_codec;
        if (!settings.destinations.empty() && !settings.analyze) {
            options.destination = settings.destinations.front();
        }
        return options;
    }

    File& file(std::size_t index) { return files_[places_[index]]; }

    void end(const File& file) {
        finished_weight_ += file.weight;
        ++finished_;
        tell_finished(settings_, file.facts, files_.size() == 1 ? Files::One : Files::Several,
                      screen_, lines_);
    }

    void draw() {
        std::vector<Screen::Bar> bars;
        double whole = finished_weight_;
        for (const File* file : running_) {
            whole += file->fraction * file->weight;
            bars.push_back({fs::path(file->facts.input).filename().string(), file->fraction,
                            seconds_since(file->started)});
        }
        screen_.draw(bars, {fmt::format("{} of {} files{}", finished_, files_.size(),
                                        signal() ? ", stopping" : ""),
                            whole / all_weight_, seconds_since(begun_)});
    }

    const Settings& settings_;
    const std::vector<PlannedFile>& plan_;
    Screen& screen_;
    JsonLines& lines_;
    Batch batch_;
    StopSignals signals_;
    std::vector<File> files_;
    std::vector<std::size_t> places_;  // in the plan, of the batch's files
    std::vector<File*> running_;
    const Clock::time_point begun_ = Clock::now();
    std::size_t finished_ = 0;
    double finished_weight_ = 0;
    double all_weight_ = 0;
};

/** Returns the exit status. */
int print_plan(const Settings& settings, const std::vector<PlannedFile>& plan, Screen& screen) {
    int status = kAllDone;
    for (const PlannedFile& file : plan) {
        const std::string input = printable(file.input.string());
        if (!file.problem.empty()) {
            screen.error(fmt::format("would fail {}: {}", input, printable(file.problem)));
            status = kSomeFailed;
        } else if (settings.analyze) {
            screen.line(fmt::format("would measure {}", input));
        } else if (file.skip.empty()) {
            screen.line(fmt::format("would level {} > {}", input, printable(file.output.string())));
        } else {
            screen.line(fmt::format("would skip {}: {}", input, printable(file.skip)));
        }
    }
    return status;
}

std::vector<FileFacts> facts_of(const std::vector<SearchProblem>& problems, Outcome outcome) {
    std::vector<FileFacts> failures;
    for (const SearchProblem& problem : problems) {
        FileFacts facts;
        facts.input = problem.path.string();
        facts.outcome = outcome;
        facts.cause = problem.cause;
        failures.push_back(facts);
    }
    return failures;
}

/** Report and JSON; a failure is told and makes the status 1. */
int write_facts(const Settings& settings, const std::vector<FileFacts>& files, Screen& screen) {
    int status = kAllDone;
    const auto attempt = [&](const char* what, const auto& write) {
        try {
            write();
        } catch (const std::exception& error) {
            screen.error(
                fmt::format("quorvane: the {} could not be written: {}", what, error.what()));
            status = kSomeFailed;
        }
    };
    if (!settings.json.empty() && !settings.json_on_standard_output()) {
        attempt("JSON file", [&] {
            std::string text;
            for (const FileFacts& facts : files) {
                text += dump(facts_document(facts, settings.destinations)) + "\n";
            }
            write_whole_text(settings.json, text);
        });
    }
    if (!settings.report.empty()) {
        attempt("report", [&] {
            const std::string page =
                write_report(settings.report, files, {settings.destinations, settings.listen});
            screen.line(fmt::format("report: {}", printable(page)));
        });
    }
    return status;
}

int run(const Settings& settings) {
    Screen screen(settings);
    const FoundFiles found = find_files(settings.paths, settings.suffix,
                                        settings.suffix.empty() ? settings.output_dir : "");
    std::vector<PlannedFile> plan = plan_outputs(settings, found.files);
    check_facts_paths(settings, plan, plan.size() + found.problems.size() > 1);
    probe_places(plan);
    std::vector<FileFacts> told = facts_of(found.problems, Outcome::Failed);
    const std::vector<FileFacts> links = facts_of(found.passed_over, Outcome::Skipped);
    told.insert(told.end(), links.begin(), links.end());
    JsonLines lines(settings);
    for (const FileFacts& facts : told) {
        tell_finished(settings, facts, Files::Several, screen, lines);
    }
    if (settings.dry_run) {
        const int status = print_plan(settings, plan, screen);
        print_unsupported(found.unsupported, screen);
        return found.problems.empty() ? status : kSomeFailed;
    }

    const auto start = Clock::now();
    remove_stale_scratch_directories();
    ShownBatch batch(settings, plan, screen, lines);
    std::vector<FileFacts> files = batch.run();
    files.insert(files.end(), told.begin(), told.end());

    if (settings.measure && files.size() > 1) {
        screen.line("\n" + printable(verdict(files, settings.destinations)));
    }
    const std::string table = loudness_table(files, screen.columns());
    if (!table.empty()) {
        screen.line("\n" + table);
    }
    const bool one_told_already = files.size() == 1;
    if (!one_told_already || batch.signal()) {
        print_summary(files, seconds_since(start), screen);
    } else {
        print_notes(files, screen);
    }
    print_unsupported(found.unsupported, screen);
    int facts_status = write_facts(settings, files, screen);
    if (lines.error() != 0) {
        screen.error(fmt::format("quorvane: the JSON facts could not be written: {}",
                                 std::strerror(lines.error())));
        facts_status = kSomeFailed;
    }
    if (batch.signal()) {
        return kSignalBase + batch.signal();
    }
    const bool failed = std::any_of(files.begin(), files.end(), [](const FileFacts& facts) {
        return facts.outcome == Outcome::Failed;
    });
    if (failed || facts_status != kAllDone) {
        return kSomeFailed;
    }
    const bool ready = std::all_of(files.begin(), files.end(), [&](const FileFacts& facts) {
        return facts.outcome == Outcome::Skipped || is_ready(facts, settings.destinations);
    });
    return ready || settings.destinations.empty() ? kAllDone : kNotReady;
}

}  // namespace

int batch_main(int argc, const char* const* argv) {
    setlocale(LC_CTYPE, "");
    try {
        const Settings settings = parse_command_line(argc, argv);
        if (settings.help) {
            fputs(help_text().c_str(), stdout);
            return kAllDone;
        }
        if (settings.version) {
            puts((std::string("quorvane ") + kVersion).c_str());
            return kAllDone;
        }
        return run(settings);
    } catch (const UsageError& error) {
        fprintf(stderr, "quorvane: %s\nTry 'quorvane --help'.\n", printable(error.what()).c_str());
        return kWrongUsage;
    } catch (const std::exception& error) {
        fprintf(stderr, "quorvane: %s\n", printable(error.what()).c_str());
        return kSomeFailed;
    }
}

}  // namespace cli
