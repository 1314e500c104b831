#include "cli/commands/engine_command.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Common/files/copy_file.h"
#include "Common/level.h"
#include "Common/result.h"
#include "cli/commands/engine_words.h"
#include "leveling/archive/record.h"
#include "leveling/engine/hooks.h"
#include "leveling/engine/output_gate.h"
#include "leveling/engine/refusal.h"
#include "leveling/engine/temporary_room.h"
#include "leveling/facts/file_error.h"
#include "leveling/metadata/length_notes.h"
#include "leveling/storage/open_files.h"
#include "leveling/storage/private_directory.h"
#include "leveling/storage/run_files.h"
#include "leveling/storage/scratch.h"
#include "leveling/storage/staged_output.h"
#include "leveling/words/text.h"

namespace fs = boost::filesystem;

namespace {

// How long a cancelled run may take to end by itself before the alarm ends the process.
constexpr unsigned kLongestStop_s = 10;
constexpr std::size_t kOpenFiles = 24;  // standard streams, input, output, intermediates, locks

/*
 * The engine's own command. The engine writes texts of its own, which are held back here: the user
 * gets one last line that says what became of the file and why. The output is staged under a hidden
 * name by Delivery and renamed at the end, so a failure never leaves half a file under its name.
 */

/** A file of another kind cannot be read a second time, and must not be replaced. */
void require_regular(const std::string& path, const char* reason) {
    boost::system::error_code ignored;
    const fs::file_type type = fs::status(path, ignored).type();
    const bool is_other = type != fs::file_not_found && type != fs::status_error &&
                          type != fs::regular_file && type != fs::directory_file;
    if (is_other) {
        throw std::runtime_error(path + ": is a pipe or a device; " + reason);
    }
}

/** The output may be named by an options file that is a pipe, and is only known at the end then. */
void require_other_files(const EngineWords& words, const std::string& output) {
    boost::system::error_code ignored;
    if (fs::equivalent(words.input, output, ignored)) {
        throw std::runtime_error(output + ": the output would replace the input");
    }
    quorvane::RunFiles files;
    files.add(quorvane::FileUse::Read, "the input", words.input);
    if (!words.options_file.empty()) {
        files.add(quorvane::FileUse::Read, "the options file", words.options_file);
    }
    files.add(quorvane::FileUse::Output, "the output", output);
}

/** Better now than after an hour's work. */
void require_writable_output(const EngineWords& words) {
    const std::string& output = words.output;
    const fs::path folder = fs::absolute(output).parent_path();
    boost::system::error_code ignored;
    if (!fs::is_directory(folder, ignored)) {
        throw std::runtime_error(output + ": the folder " + folder.string() + " does not exist");
    }
    if (access(folder.c_str(), W_OK) != 0) {
        throw std::runtime_error(output + ": the folder " + folder.string() + " cannot be written");
    }
    if (fs::is_directory(output, ignored)) {
        throw std::runtime_error(output + ": is a folder");
    }
    require_regular(output, "the output has to be a file");
    require_other_files(words, output);
}

/** In place: the next percentage overwrites this one. Returns 0, which lets the run go on. */
int show_progress(void* /*context*/, float fraction) {
    std::printf("%3d%%\r", static_cast<int>(std::lround(fraction * 100.0F)));
    std::fflush(stdout);
    return 0;
}

/** For an output that is not a terminal: a log would keep every percentage. */
int ignore_progress(void* /*context*/, float /*fraction*/) {
    return 0;
}

/** The engine's text of a failure, which the last line reports in other words. */
struct HeldWords {
    std::string directory;  // no word with this internal path in it is shown
    std::string text;
};

/**
 * Called with each text of the engine. What it writes to its standard output is shown at once, but
 * for lines that name the internal directory; what it writes about a failure is held.
 */
void take_words(void* context, LevelWords kind, const char* text) {
    auto& held = *static_cast<HeldWords*>(context);
    if (kind != kLevelWordsOutput) {
        held.text += text;
    } else if (std::string(text).find(held.directory) == std::string::npos) {
        std::cout << quorvane::printable_lines(text) << std::flush;
    }
}

/** A step ends itself; whatever else hangs, a library's call for instance, ends by the alarm. */
extern "C" void request_cancel(int /*signal*/) {
    levelRequestCancel();
    alarm(kLongestStop_s);
}

/**
 * Lets Ctrl-C, a termination and a closed terminal cancel the run, which then removes what it has
 * written so far.
 */
void set_up_signals() {
    struct sigaction action = {};
    action.sa_handler = request_cancel;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old = {};
        sigaction(signal, nullptr, &old);
        // nohup's wish stands. A shell has its background jobs ignore SIGINT, which need not be
        // kept.
        if (signal != SIGHUP || old.sa_handler != SIG_IGN) {
            sigaction(signal, &action, nullptr);
        }
    }
    // Who closes our output early must not leave us without the time to clean up.
    signal(SIGPIPE, SIG_IGN);
}

/**
 * The output from the engine's last step on. The step writes into the hidden file itself where it
 * can; what went into a temporary file, an encoder's output or one to be kept, is copied over.
 */
class Delivery {
  public:
    explicit Delivery(const EngineWords& words)
        : words_(words),
          input_(words.input),
          output_(words.output),
          before_(quorvane::state_of(input_)) {}

    /** The hidden file's descriptor, or -1: then the end of the run will say why. */
    int open() {
        try {
            if (output_.empty()) {
                return -1;  // only the engine knows it yet
            }
            stage();
            return staged_->descriptor();
        } catch (const std::exception&) {
            return -1;
        }
    }

    /** Runs where the engine has an input to copy. Returns 0, or 1 when the copy failed. */
    int copy(const std::string& from, const std::string& to) {
        // Refused: the end of the run says why.
        return quorvane::refusal_of(*levelOutcome()).empty() ? copy_file(from, to) : 0;
    }

    /** Runs where the engine hands its last file over. */
    void deliver(const std::string& final_file, const std::string& output) {
        const std::string refusal = quorvane::refusal_of(*levelOutcome());
        if (!refusal.empty()) {
            throw std::runtime_error(refusal);
        }
        boost::system::error_code ignored;
        const bool is_copied = fs::exists(final_file, ignored) || !staged_;
        quorvane::length_note(input_);  // for its refusals
        quorvane::require_sound_output(input_, is_copied ? final_file : staged_->path());
        if (quorvane::state_of(input_) != before_) {
            throw std::runtime_error(
                "it was changed while it was worked on, so nothing was written");
        }
        if (is_copied) {
            require_other_files(words_, output);
            output_ = output;
            stage();
            staged_->fill_from(final_file);
        }
        struct stat status = {};
        if (stat(input_.c_str(), &status) == 0) {
            chmod(staged_->path().c_str(), status.st_mode & 0777);  // no more open than the input
        }
        staged_->sync();
        staged_->commit(quorvane::Existing::Replace);
        // It is to be moved: nothing of it stays among kept files.
        fs::remove(final_file, ignored);
    }

  private:
    /** Makes the hidden file beside the output, once. Throws std::system_error. */
    void stage() {
        if (!staged_) {
            staged_.emplace(output_);
            staged_->keep_private();
        }
    }

    const EngineWords& words_;
    std::string input_;
    std::string output_;
    quorvane::FileState before_;
    std::optional<quorvane::StagedOutput> staged_;
};

// What the engine calls, with the Delivery as its context.
int open_final(void* delivery) {
    return static_cast<Delivery*>(delivery)->open();
}

int copy_input(void* delivery, const char* input, const char* output) {
    return static_cast<Delivery*>(delivery)->copy(input, output);
}

/** Runs the engine over the words. Returns its result: kSuccess, kFailure or kCancelled. */
int level(EngineWords& words, HeldWords& held) {
    std::vector<char*> argv;
    for (std::string& word : words.words) {
        argv.push_back(&word[0]);
    }
    argv.push_back(nullptr);
    levelSetMessages(take_words, &held);
    levelCollectFindings(1);
    levelHideIntermediates(1);
    const LevelProgress progress = isatty(STDOUT_FILENO) != 0 ? show_progress : ignore_progress;
    return levelMain(static_cast<int>(words.words.size()), argv.data(), "", progress, nullptr);
}

/** The first cause to be put behind "IN: not leveled: "; IN is not named twice at its beginning. */
std::string cause_of(const LevelOutcome& outcome, const EngineWords& words, const HeldWords& held) {
    std::string cause = outcome.cause;
    const std::string prefix = words.input + ": ";
    if (cause.compare(0, prefix.size(), prefix) == 0) {
        cause.erase(0, prefix.size());
    }
    if (outcome.failed_step > 0 && outcome.system_failure != 0 &&
        outcome.failed_file != kLevelFinalFile) {
        // The reader must know which disk to look at.
        cause += " (temporary files are in " +
                 fs::path(held.directory).parent_path().parent_path().string() + ")";
    }
    return cause;
}

/** Of a recording whose level could not be reached without it. */
std::string held_note() {
    const long long held = levelFindings()->held_samples;
    return held > 0 ? ": " + std::to_string(held) + " samples are held at full scale" : "";
}

/** What is odd about the input's length; it is delivered, so that no failure counts any more. */
std::string length_note(const std::string& input) {
    try {
        const std::string note = quorvane::length_note(input);
        return note.empty() ? "" : ": " + quorvane::printable(note);
    } catch (const std::exception& failure) {
        return ": " + quorvane::printable(quorvane::cause_of(failure));
    }
}

/** Returns the program's status. */
int tell(const EngineWords& words, int result, const HeldWords& held) {
    const LevelOutcome& outcome = *levelOutcome();
    const std::string input = quorvane::printable(words.input);
    const std::string output = quorvane::printable(words.output);
    switch (outcome.kind) {
        case kLevelNotRun:
        case kLevelWrongUsage:
            std::cerr << quorvane::printable_lines(held.text);
            return result;
        case kLevelCancelled:
            std::cerr << input << ": cancelled" << std::endl;
            return result;
        case kLevelFailed:
            std::cerr << input
                      << ": not leveled: " << quorvane::printable(cause_of(outcome, words, held))
                      << std::endl;
            return result;
        case kLevelLeveled:
            if (hooks::delivery() != hooks::kDelivered) {
                std::cerr << input
                          << ": not leveled: " << quorvane::printable(hooks::delivery_failure())
                          << std::endl;
                return kFailure;
            }
            std::cout << input << ": leveled, " << output << held_note() << length_note(words.input)
                      << std::endl;
            return result;
        default:
            if (!quorvane::refusal_of(outcome).empty()) {
                std::cerr << input << ": not leveled: "
                          << quorvane::printable(outcome.defect != kLevelNoDefect
                                                     ? outcome.defect_reason
                                                     : cause_of(outcome, words, held))
                          << std::endl;
                return kFailure;
            }
            std::cout << input << ": copied unchanged, " << output << ": " << outcome.reason
                      << length_note(words.input) << std::endl;
            return result;
    }
}

/** What needs no work comes first: a wrong path must not be found after an hour. */
int run(std::vector<std::string> arguments) {
    EngineWords words = read_engine_words(std::move(arguments));
    require_regular(words.input, "a recording is read more than once, so copy it to a file first");
    if (!words.output.empty()) {
        require_writable_output(words);
        quorvane::remove_stale_parts(words.output);
    }
    quorvane::require_open_files(kOpenFiles);
    set_up_signals();
    quorvane::remove_stale_scratch_directories();
    std::optional<quorvane::ScratchDirectory> own;
    std::optional<PrivateDirectory> kept;
    if (words.keep_intermediates.empty()) {
        own.emplace();
    } else {
        kept.emplace(words.keep_intermediates);
        levelKeepIntermediates(1);
    }
    HeldWords held{own ? own->path() : kept->path(), ""};
    hooks::use_temporary_directory(held.directory);
    Delivery delivery(words);
    hooks::deliver_with([&](const std::string& final_file, const std::string& output) {
        delivery.deliver(final_file, output);
    });
    // An options file that is a pipe may name the output, which is not known here then.
    levelSetFinalFile(open_final, &delivery, words.output.empty() ? nullptr : words.output.c_str());
    levelSetCopy(copy_input, &delivery);
    try {
        const fs::path directory = fs::path(held.directory).parent_path();
        quorvane::require_temporary_room(words.input,
                                         (own ? directory.parent_path() : directory).string());
    } catch (const std::runtime_error& failure) {
        std::cerr << quorvane::printable(words.input)
                  << ": not leveled: " << quorvane::printable(failure.what()) << std::endl;
        return kFailure;
    }
    const int result = level(words, held);
    return tell(words, result, held);
}

}  // namespace

int run_engine_command(int argc, char** argv) {
    try {
        return run({argv, argv + argc});
    } catch (const std::exception& failure) {
        std::cerr << "quorvane: " << quorvane::printable(quorvane::cause_of(failure)) << std::endl;
        return kFailure;
    }
}
