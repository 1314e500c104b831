#include "cli/commands/watch_command.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "cli/commands/batch_command.h"
#include "cli/commands/results.h"
#include "cli/terminal/screen.h"
#include "leveling/batch/work_list.h"
#include "leveling/inputs/earlier_places.h"
#include "leveling/inputs/find_files.h"
#include "leveling/storage/open_files.h"
#include "leveling/storage/scratch.h"
#include "leveling/storage/staged_output.h"
#include "leveling/watch/watcher.h"
#include "leveling/words/text.h"

/*
 * The watch itself has no texts. Here its events become lines for people and lines of JSON: a
 * finished file is the same object as in any other run, with "event" in front; other events have
 * objects of their own.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

using Json = nlohmann::ordered_json;

/** Shows a watch on the screen, in the log and in the lines of JSON. */
class ShownWatch : public WatchObserver {
  public:
    ShownWatch(const Settings& settings, Screen& screen, JsonLines& lines)
        : settings_(settings), screen_(screen), lines_(lines) {}

    void watching(const std::string& why_search) override {
        tell("watching",
             why_search.empty() ? fmt::format("watching {}", settings_.watch)
                                : fmt::format("watching {} by a search every few seconds: {}",
                                              settings_.watch, why_search),
             {{"folder", settings_.watch}, {"search", !why_search.empty()}});
    }

    void gone(const std::string& folder) override {
        tell("gone",
             fmt::format("{} is gone, or its file system is not mounted; waiting for it", folder),
             {{"folder", folder}});
    }

    void waiting(const FileFacts& facts) override {
        tell("waiting",
             fmt::format("a disk is full, so nothing more is begun until there is room: {}: {}",
                         facts.input, facts.cause),
             {{"input", facts.input}, {"cause", facts.cause}});
    }

    void resumed() override { tell("resumed", "there is room again", Json::object()); }

    void started(const std::string& input) override { event("started", {{"input", input}}); }

    void messages(const std::string& text) override {
        if (settings_.verbose) {
            screen_.line(printable(text));
        }
    }

    void finished(const FileFacts& facts) override {
        // Its line of JSON has "event" in front and is written below, so this call gets lines that
        // go nowhere.
        static const Settings kNoJson;
        JsonLines none(kNoJson);
        tell_finished(settings_, facts, Files::Several, screen_, none);
        lines_.write({{"event", "finished"}, {"time", utc_time_now()}}, &facts);
    }

    void problem(const std::string& text) override {
        screen_.error(fmt::format("quorvane: {}", printable(text)));
        event("problem", {{"cause", text}});
    }

    void reopen() override {
        // After SIGHUP, which log rotation sends once it has renamed the file.
        screen_.reopen_log();
        screen_.line("the log was opened again");
    }

    void stopping(std::size_t running) override {
        tell("stopping",
             running == 0
                 ? "stopped"
                 : fmt::format("stopping; files in work, which the next start takes again: {}",
                               running),
             {{"dropped", running}});
    }

  private:
    /** One line of JSON: the event, the time (UTC) and its own members. */
    void event(const char* name, const Json& members) {
        Json document = {{"event", name}, {"time", utc_time_now()}};
        document.update(members);
        lines_.write(document, nullptr);
    }

    /** The same, and a line on the screen. */
    void tell(const char* name, const std::string& text, const Json& members) {
        screen_.line(printable(text));
        event(name, members);
    }

    const Settings& settings_;
    Screen& screen_;
    JsonLines& lines_;
};

/** A file that cannot be planned, as one whose output would be a folder. */
PlannedFile failed(const std::string& path, const std::string& cause) {
    PlannedFile file;
    file.input = path;
    file.known = std::make_shared<FileFacts>();
    file.known->input = path;
    file.known->outcome = Outcome::Failed;
    file.known->cause = cause;
    return file;
}

/** What is to be done with files that arrived: see WatchRequest::plan. */
std::vector<PlannedFile> plan_arrivals(const Settings& settings,
                                       const std::vector<std::string>& paths) {
    // Outputs of this program may lie in the same folder: leveled again they would never end.
    FoundFiles found = find_files_below(settings.watch, paths,
                                        {settings.suffix, settings.output_dir, OwnOutputs::LeaveOut,
                                         settings.keep_top ? Top::Keep : Top::Drop});
    keep_earlier_places(settings, found.files);
    std::vector<PlannedFile> plan;
    for (const FoundFile& file : found.files) {
        try {
            // One by one: what is wrong with a file must not stop the others.
            for (PlannedFile& planned : plan_outputs(settings, {file})) {
                planned.bytes = state_of(planned.input).size;
                plan.push_back(planned.problem.empty() ? std::move(planned)
                                                       : failed(file.path, planned.problem));
            }
        } catch (const UsageError& error) {
            plan.push_back(failed(file.path, error.what()));
        }
    }
    judge_outputs(settings, plan);
    return plan;
}

/** The program's absolute path. Throws UsageError unless it is one that can be run. */
std::string program_of(const std::string& program) {
    if (program.empty()) {
        return "";
    }
    std::error_code error;
    std::string path = fs::absolute(program, error).string();
    if (!fs::is_regular_file(path, error) || access(path.c_str(), X_OK) != 0) {
        throw UsageError(
            fmt::format("--on-done {} is not a program that can be run; name its path", program));
    }
    return path;
}

/** Throws UsageError where the file would take the place of something else. */
void check_metrics_file(const std::string& path) {
    // The first line of every file of counts. A file that begins in another way may be the user's.
    constexpr const char* kStart = "# HELP quorvane";
    std::error_code error;
    if (path.empty() || !fs::exists(path, error)) {
        return;
    }
    std::string line;
    std::ifstream in(path);
    std::getline(in, line);
    // An empty file has nothing to lose, so it is accepted.
    if (!fs::is_regular_file(path, error) || (!line.empty() && line.rfind(kStart, 0) != 0)) {
        throw UsageError(fmt::format(
            "--metrics {} exists and does not look like such a file; name another one", path));
    }
}

/**
 * The request without words of the command line. Its plan function names the outputs of files that
 * arrived, and removes what a killed run left in each output folder.
 */
WatchRequest request_of(const Settings& settings) {
    WatchRequest request;
    request.folder = settings.watch;
    request.output_dir = settings.output_dir;
    request.settle_s = settings.settle_s;
    request.jobs = settings.jobs;
    request.options = job_options(settings);
    request.on_done = program_of(settings.on_done);
    request.metrics = settings.metrics;
    // The function owns the set, which therefore lasts as long as the watch.
    request.plan = [&settings, cleaned = std::set<std::string>()](
                       const std::vector<std::string>& paths) mutable {
        std::vector<PlannedFile> plan = plan_arrivals(settings, paths);
        for (const PlannedFile& file : plan) {
            // What a killed run left there; the folder is read once.
            const std::string folder = fs::path(file.output).parent_path().string();
            if (!file.output.empty() && cleaned.insert(folder).second) {
                remove_stale_parts_ending(folder.empty() ? "." : folder, "");
            }
        }
        return plan;
    };
    return request;
}

}  // namespace

// Checks first what would stop a watch after hours: the folder, the programs, the files it writes.
int run_watch(const Settings& asked) {
    Settings settings = asked;
    std::error_code error;
    if (!fs::is_directory(settings.watch, error)) {
        throw UsageError(fmt::format("--watch {} is not a folder", settings.watch));
    }
    // A trailing slash would double in the paths of files.
    settings.watch = fs::path(settings.watch).lexically_normal().string();
    while (settings.watch.size() > 1 && settings.watch.back() == '/') {
        settings.watch.pop_back();
    }
    // A watch has no end that a bar could show.
    settings.progress = When::Never;
    check_facts_paths(settings, 1);
    check_metrics_file(settings.metrics);
    WatchRequest request = request_of(settings);
    Screen screen(settings);
    JsonLines lines(settings);
    constexpr std::size_t kOwn = 64;       // streams, log, locks, notifications
    constexpr std::size_t kForWorker = 8;  // its pipes and its output
    require_open_files(kOwn + kForWorker * settings.jobs);
    // Temporary folders of runs that were killed.
    remove_stale_scratch_directories();
    ShownWatch shown(settings, screen, lines);
    Watcher(std::move(request), shown).run();
    // Lines of JSON or of the log that were lost make the status 1.
    const bool lost = lines.error() != 0 || !screen.problems().empty();
    for (const std::string& problem : screen.problems()) {
        screen.error(fmt::format("quorvane: {}", printable(problem)));
    }
    return lost ? kSomeFailed : kAllDone;
}

}  // namespace quorvane
