#include "cli/commands/pipe_command.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Common/files/descriptor.h"
#include "cli/commands/batch_command.h"
#include "cli/commands/results.h"
#include "cli/terminal/screen.h"
#include "leveling/audio/audio_formats.h"
#include "leveling/batch/batch.h"
#include "leveling/batch/stop_signals.h"
#include "leveling/batch/work_list.h"
#include "leveling/inputs/content_extension.h"
#include "leveling/inputs/plan.h"
#include "leveling/report/result_files.h"
#include "leveling/storage/scratch.h"
#include "leveling/words/text.h"
#include "leveling/worker/job.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/*
 * A pipe can be read once and a recording is read several times, so the standard input is spooled
 * to a file in the run's private folder first. The output is written to that folder, too, and
 * copied to the standard output once it is complete and checked: a failure writes nothing.
 */

/** Keeps the facts of the only file. */
class OneFile : public BatchObserver {
  public:
    OneFile(const Settings& settings, Screen& screen) : settings_(settings), screen_(screen) {}

    void messages(std::size_t /*index*/, const std::string& text) override {
        if (settings_.verbose) {
            screen_.line(printable(text));
        }
    }

    void finished(std::size_t /*index*/, const FileFacts& facts) override { facts_ = facts; }

    const FileFacts& facts() const { return facts_; }

  private:
    const Settings& settings_;
    Screen& screen_;
    FileFacts facts_;
};

/** Throws UsageError for what cannot be done with a pipe. */
void check_streams(const Settings& settings) {
    // A stream is one file: what names several is refused.
    if (settings.paths.size() != 1 || !settings.files_from.empty() || !settings.plan.empty() ||
        !settings.watch.empty() || !settings.output_dir.empty() || settings.dry_run ||
        !settings.report.empty() || settings.shard.count > 1) {
        throw UsageError(
            "- stands for a standard stream, which goes with one input and one output, and without "
            "--output-dir, --files-from, --plan, --shard, --watch, --dry-run and --report");
    }
    // The program would wait for typed bytes without a word.
    if (settings.paths.front() == kStandardStream && isatty(STDIN_FILENO)) {
        throw UsageError("the standard input is a terminal; pipe a recording into it");
    }
    if (settings.output == kStandardStream && settings.json_on_standard_output()) {
        throw UsageError("the output and --json cannot both go to the standard output");
    }
    if (settings.output == kStandardStream && isatty(STDOUT_FILENO)) {
        throw UsageError(
            "the standard output is a terminal; redirect it, or name a file with --output");
    }
}

/** Keeps the standard input in a file that is named after its content. */
std::string spooled_input(const std::string& folder) {
    const std::string path = folder + "input";
    // The folder is this run's own, so the name is free; only this user may read the recording.
    const Descriptor file(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (!file.is_open() || !copy_all(STDIN_FILENO, file.get())) {
        throw std::system_error(errno, std::generic_category(),
                                "the standard input cannot be kept in " + folder);
    }
    // A stream has no name, so its first bytes decide.
    const std::string extension = extension_of_content(path);
    if (extension.empty()) {
        throw std::runtime_error(fs::file_size(path) == 0
                                     ? "the standard input is empty"
                                     : "the standard input holds no recording of a known format");
    }
    fs::rename(path, path + "." + extension);
    return path + "." + extension;
}

/** The one file of the run. An output of "-" goes into the folder first. */
PlannedFile plan_pipe(const Settings& settings, const std::string& folder) {
    const std::string& named = settings.paths.front();
    const std::string input = named == kStandardStream ? spooled_input(folder) : named;
    PlannedFile file;
    file.input = input;
    // No name of an output: nothing is written.
    if (settings.analyze) {
        return file;
    }
    // A named output follows the same rules as that of any file, also where it exists.
    if (settings.output != kStandardStream) {
        std::vector<PlannedFile> plan =
            plan_outputs(settings, {{input, fs::path(input).filename().string()}});
        judge_outputs(settings, plan);
        return plan.front();
    }
    if (!fs::is_regular_file(input)) {
        throw UsageError(fmt::format("{} is not a file; --output - takes one", input));
    }
    // The output has the format of the input.
    file.output = folder + "output." + lower_extension(input);
    return file;
}

/** Writes the finished output to the standard output; false when not all of it could be. */
bool write_out(const std::string& path, Screen& screen) {
    const Descriptor file(path, O_RDONLY | O_CLOEXEC);
    if (file.is_open() && copy_all(file.get(), STDOUT_FILENO)) {
        return true;
    }
    screen.error(
        fmt::format("quorvane: the standard output cannot be written: {}", std::strerror(errno)));
    return false;
}

/** Works on the file; returns the signal that stopped it, or 0. */
int work_on(const Settings& settings, const PlannedFile& file, OneFile& one) {
    // Decided before the work, as for an output that exists.
    if (file.known) {
        one.finished(0, *file.known);
        return 0;
    }
    JobOptions options = job_options(settings);
    // A file that is only measured is made for no destination.
    if (settings.analyze) {
        options.destination.clear();
    }
    Batch batch(1, options, one);
    // While this lives, SIGINT, SIGTERM and SIGHUP stop the batch.
    const StopSignals signals(batch);
    batch.add(file.input, file.output,
              settings.force ? Batch::Existing::Replace
              : file.renew   ? Batch::Existing::Renew
                             : Batch::Existing::Keep,
              file.found);
    batch.close();
    batch.run();
    return signals.signal();
}

}  // namespace

// Either side is enough: quorvane - and quorvane talk.wav -o - both use a stream.
bool is_pipe(const Settings& settings) {
    for (const std::string& path : settings.paths) {
        if (path == kStandardStream) {
            return true;
        }
    }
    return settings.output == kStandardStream;
}

// The facts name the streams as the user did, not the temporary files.
int run_pipe(const Settings& asked) {
    Settings settings = asked;
    // Without --output the result goes to the standard output.
    if (settings.output.empty() && !settings.analyze) {
        settings.output = kStandardStream;
    }
    check_streams(settings);
    check_facts_paths(settings, 1);
    remove_stale_scratch_directories();
    const ScratchDirectory scratch;
    const PlannedFile file = plan_pipe(settings, scratch.path());
    Screen screen(settings);
    JsonLines lines(settings);
    ResultFiles results(settings, 1, {});
    OneFile one(settings, screen);
    const int signal = work_on(settings, file, one);
    FileFacts facts = one.facts();
    facts.input = settings.paths.front();
    if (settings.output == kStandardStream) {
        facts.output = settings.output;
        // An input that was copied unchanged is an output as well.
        const bool made = facts.outcome == Outcome::Leveled || facts.outcome == Outcome::Copied;
        if (made && !write_out(file.output, screen)) {
            facts.outcome = Outcome::Failed;
            facts.cause = "the standard output was closed or is full";
        }
    }
    tell_finished(settings, facts, Files::One, screen, lines);
    results.add(0, std::move(facts));
    tell_results(settings, results, 0, signal, screen);
    const int status = status_of(settings, results, lines, screen);
    // As shells report it: 130 after Ctrl-C.
    return signal ? kSignalBase + signal : status;
}

}  // namespace quorvane
