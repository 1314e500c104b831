#include "cli/batch.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>

#include "cli/facts/run_facts.h"
#include "cli/inputs/find_files.h"
#include "cli/inputs/plan.h"
#include "cli/options/settings.h"
#include "cli/report/report.h"
#include "cli/storage/scratch.h"
#include "cli/storage/staged_output.h"
#include "cli/terminal/screen.h"
#include "cli/terminal/summary.h"
#include "cli/terminal/terminal_text.h"
#include "cli/worker/worker_process.h"

namespace cli {
namespace fs = std::filesystem;

namespace {

constexpr int kPollMilliseconds = 200;

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

int g_signal_pipe[2] = {-1, -1};

void note_signal(int signal) {
    const int error = errno;
    const char byte = static_cast<char>(signal);
    (void)!write(g_signal_pipe[1], &byte, 1);
    errno = error;
}

void catch_signals() {
    if (pipe(g_signal_pipe) != 0) {
        return;
    }
    for (int end : g_signal_pipe) {
        fcntl(end, F_SETFD, FD_CLOEXEC);
        fcntl(end, F_SETFL, O_NONBLOCK);
    }

    struct sigaction action {};

    action.sa_handler = note_signal;
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) {
        struct sigaction old {};

        sigaction(signal, nullptr, &old);
        // What nohup or a shell's background job ignores stays ignored.
        if (old.sa_handler != SIG_IGN) {
            sigaction(signal, &action, nullptr);
        }
    }
    signal(SIGPIPE, SIG_IGN);  // a reader that left (| head) must not cost the files
}

/** Runs the planned files, so many at a time, each in a process of its own. */
class Batch {
  public:
    Batch(const Settings& settings, const std::vector<PlannedFile>& plan, Screen& screen)
        : settings_(settings), plan_(plan), screen_(screen), facts_(plan.size()) {
        for (std::size_t i = 0; i < plan.size(); ++i) {
            facts_[i].input = plan[i].input.string();
            facts_[i].output = plan[i].output.string();
            std::error_code ignored;
            const auto bytes = fs::file_size(plan[i].input, ignored);
            // A little for each file, so that many small ones count too.
            weights_.push_back(ignored ? 1.0 : static_cast<double>(bytes) + 65536.0);
        }
    }

    // Returns the facts of every planned file, in the plan's order.
    std::vector<FileFacts> run() {
        started_ = Clock::now();
        while (start_more() || !running_.empty()) {
            wait();
            collect();
            draw();
        }
        screen_.clear();
        return facts_;
    }

    int signal() const { return signal_; }

  private:
    struct Running {
        std::size_t index;
        Clock::time_point started;
        std::unique_ptr<WorkerProcess> worker;
    };

    bool start_more() {
        while (!signal_ && next_ < plan_.size() && running_.size() < settings_.jobs) {
            const std::size_t index = next_++;
            if (!plan_[index].skip.empty()) {
                facts_[index].outcome = Outcome::Skipped;
                facts_[index].cause = plan_[index].skip;
                done(index);
            } else {
                start(index);
            }
        }
        return !running_.empty();
    }

    void start(std::size_t index) {
        Job job;
        job.input = fs::absolute(plan_[index].input).string();
        if (!plan_[index].output.empty()) {
            job.output = fs::absolute(plan_[index].output).string();
        }
        job.scratch = fmt::format("{}{}", scratch_.path(), index);
        job.tuning = settings_.tuning;
        job.measure = settings_.measure;
        job.replace = settings_.force;
        job.keep_mtime = settings_.keep_mtime;
        try {
            fs::create_directory(job.scratch);
            running_.push_back({index, Clock::now(), std::make_unique<WorkerProcess>(job)});
        } catch (const std::exception& error) {
            facts_[index].outcome = Outcome::Failed;
            facts_[index].cause = error.what();
            done(index);
        }
    }

    void wait() {
        std::vector<pollfd> watched = {{g_signal_pipe[0], POLLIN, 0}};
        for (const Running& running : running_) {
            watched.push_back({running.worker->events(), POLLIN, 0});
            watched.push_back({running.worker->output(), POLLIN, 0});
        }
        if (running_.empty() || poll(watched.data(), watched.size(), kPollMilliseconds) <= 0) {
            return;
        }
        if (watched[0].revents) {
            take_signals();
        }
        for (std::size_t i = 0; i < running_.size(); ++i) {
            if (watched[1 + 2 * i].revents) {
                running_[i].worker->read_events();
            }
            if (watched[2 + 2 * i].revents) {
                running_[i].worker->read_output();
            }
        }
    }

    // The first asks the workers to stop and clean up, the second ends them.
    void take_signals() {
        char byte = 0;
        while (read(g_signal_pipe[0], &byte, 1) == 1) {
            if (byte == SIGWINCH) {
                screen_.resized();
                continue;
            }
            const bool again = signal_ != 0;
            if (!again) {
                signal_ = byte;
            }
            for (const Running& running : running_) {
                running.worker->send_signal(again ? SIGKILL : SIGTERM);
            }
        }
    }

    void collect() {
        for (std::size_t i = 0; i < running_.size();) {
            if (!running_[i].worker->at_end()) {
                ++i;
                continue;
            }
            const Running ended = std::move(running_[i]);
            running_.erase(running_.begin() + static_cast<std::ptrdiff_t>(i));
            finish(ended);
        }
    }

    void finish(const Running& ended) {
        const std::string input = facts_[ended.index].input;
        const std::string output = facts_[ended.index].output;
        FileFacts facts = ended.worker->finish();
        facts.input = input;
        facts.output = output;
        if (facts.elapsed_s == 0) {
            facts.elapsed_s = seconds_since(ended.started);
        }
        if (signal_ && facts.outcome == Outcome::Failed) {
            facts.outcome = Outcome::Interrupted;
            facts.cause = "stopped";
        }
        facts_[ended.index] = facts;
        if (settings_.verbose && !ended.worker->messages().empty()) {
            screen_.line(printable_lines(ended.worker->messages()));
        }
        done(ended.index);
    }

    static std::string printable_lines(const std::string& messages) {
        std::string text;
        for (char c : messages) {
            text += c == '\n' ? c : printable(std::string(1, c))[0];
        }
        while (!text.empty() && text.back() == '\n') {
            text.pop_back();
        }
        return text;
    }

    void done(std::size_t index) {
        const FileFacts& facts = facts_[index];
        finished_weight_ += weights_[index];
        ++finished_;
        if (facts.outcome == Outcome::Failed) {
            screen_.error(finished_line(facts, screen_));
        } else if (facts.outcome != Outcome::Interrupted) {
            screen_.line(finished_line(facts, screen_));
        }
        if (settings_.json_on_standard_output()) {
            puts(dump(to_json(facts)).c_str());
            fflush(stdout);
        }
    }

    void draw() {
        if (!screen_.wants_drawing() || running_.empty()) {
            return;
        }
        std::vector<Screen::Bar> bars;
        double whole = finished_weight_;
        double all = 0;
        for (double weight : weights_) {
            all += weight;
        }
        for (const Running& running : running_) {
            const double fraction = running.worker->progress();
            whole += fraction * weights_[running.index];
            bars.push_back({plan_[running.index].input.filename().string(), fraction,
                            seconds_since(running.started)});
        }
        screen_.draw(bars, {fmt::format("{} of {} files{}", finished_, plan_.size(),
                                        signal_ ? ", stopping" : ""),
                            whole / all, seconds_since(started_)});
    }

    const Settings& settings_;
    const std::vector<PlannedFile>& plan_;
    Screen& screen_;
    ScratchDirectory scratch_;
    std::vector<FileFacts> facts_;
    std::vector<double> weights_;
    std::vector<Running> running_;
    Clock::time_point started_;
    std::size_t next_ = 0;
    std::size_t finished_ = 0;
    double finished_weight_ = 0;
    int signal_ = 0;
};

void print_plan(const Settings& settings, const std::vector<PlannedFile>& plan, Screen& screen) {
    for (const PlannedFile& file : plan) {
        const std::string input = printable(file.input.string());
        if (settings.analyze) {
            screen.line(fmt::format("would measure {}", input));
        } else if (file.skip.empty()) {
            screen.line(fmt::format("would level {} > {}", input, printable(file.output.string())));
        } else {
            screen.line(fmt::format("would skip {}: {}", input, printable(file.skip)));
        }
    }
}

std::vector<FileFacts> failures_of(const std::vector<SearchProblem>& problems) {
    std::vector<FileFacts> failures;
    for (const SearchProblem& problem : problems) {
        FileFacts facts;
        facts.input = problem.path.string();
        facts.outcome = Outcome::Failed;
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
                text += dump(to_json(facts)) + "\n";
            }
            write_whole_text(settings.json, text);
        });
    }
    if (!settings.report.empty()) {
        attempt("report", [&] {
            const std::string page = write_report(settings.report, files);
            screen.line(fmt::format("report: {}", printable(page)));
        });
    }
    return status;
}

int run(const Settings& settings) {
    Screen screen(settings);
    const FoundFiles found = find_files(settings.paths, settings.suffix,
                                        settings.suffix.empty() ? settings.output_dir : "");
    const std::vector<PlannedFile> plan = plan_outputs(settings, found.files);
    check_facts_paths(settings, plan, plan.size() + found.problems.size() > 1);
    const std::vector<FileFacts> missing = failures_of(found.problems);
    for (const FileFacts& facts : missing) {
        screen.error(finished_line(facts, screen));
        if (settings.json_on_standard_output() && !settings.dry_run) {
            puts(dump(to_json(facts)).c_str());
        }
    }
    if (settings.dry_run) {
        print_plan(settings, plan, screen);
        return missing.empty() ? kAllDone : kSomeFailed;
    }

    const auto start = Clock::now();
    catch_signals();
    remove_stale_scratch_directories();
    Batch batch(settings, plan, screen);
    std::vector<FileFacts> files = batch.run();
    files.insert(files.end(), missing.begin(), missing.end());

    const std::string table = loudness_table(files, screen.columns());
    if (!table.empty()) {
        screen.line("\n" + table);
    }
    const bool one_told_already = files.size() == 1;
    if (!one_told_already || batch.signal()) {
        print_summary(files, seconds_since(start), screen);
    }
    const int facts_status = write_facts(settings, files, screen);
    if (batch.signal()) {
        return kSignalBase + batch.signal();
    }
    const bool failed = std::any_of(files.begin(), files.end(), [](const FileFacts& facts) {
        return facts.outcome == Outcome::Failed;
    });
    return failed ? kSomeFailed : facts_status;
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
            puts("quorvane " QUORVANE_VERSION);
            return kAllDone;
        }
        return run(settings);
    } catch (const UsageError& error) {
        fprintf(stderr, "quorvane: %s\nTry 'quorvane --help'.\n", error.what());
        return kWrongUsage;
    } catch (const std::exception& error) {
        fprintf(stderr, "quorvane: %s\n", error.what());
        return kSomeFailed;
    }
}

}  // namespace cli
