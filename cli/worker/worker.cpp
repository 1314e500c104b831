#include "cli/worker/worker.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include "Common/level.h"
#include "cli/audio/audio_formats.h"
#include "cli/audio/measure.h"
#include "cli/audio/recode.h"
#include "cli/audio/sound_file.h"
#include "cli/engine/hooks.h"
#include "cli/engine/passages.h"
#include "cli/facts/run_facts.h"
#include "cli/metadata/chunks.h"
#include "cli/metadata/tags.h"
#include "cli/storage/private_directory.h"
#include "cli/storage/scratch.h"
#include "cli/storage/staged_output.h"
#include "cli/worker/job.h"

#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace cli {
namespace fs = std::filesystem;

namespace {

constexpr double kShortestSeconds = 0.05;  // the engine copies what is shorter
/** Shares of a file's progress bar. */
constexpr double kMeasuredBefore = 0.10;
constexpr double kEngineDone = 0.88;
constexpr double kMeasuredAfter = 0.97;

constexpr std::uintmax_t kFullDiskBytes = 1 << 20;

int g_stop_pipe[2] = {-1, -1};

void write_line(const std::string& line) {
    const std::string text = line + "\n";
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = write(kEventDescriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR) {
            return;
        }
        if (written > 0) {
            done += static_cast<std::size_t>(written);
        }
    }
}

/** At most so many bytes, less at the pipe's end; stops after a byte that equals `last`. */
std::string read_job_bytes(std::size_t count, int last = -1) {
    std::string bytes;
    char c = 0;
    while (bytes.size() < count) {
        const ssize_t got = read(kJobDescriptor, &c, 1);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got != 1) {
            break;
        }
        if (c == last) {
            break;
        }
        bytes += c;
    }
    return bytes;
}

Job read_job() {
    constexpr std::size_t kMostDigits = 9;
    const std::string digits = read_job_bytes(kMostDigits, '\n');
    return nlohmann::json::from_cbor(read_job_bytes(std::strtoul(digits.c_str(), nullptr, 10)))
        .get<Job>();
}

void ask_to_stop(int) {
    (void)!write(g_stop_pipe[1], "", 1);
}

/**
 * Waits for a signal or for the end of the parent, then removes the job's files and ends the
 * process. What the other thread writes meanwhile fails, as its folder is gone.
 */
void watch(const Job& job) {
    pollfd watched[2] = {{kJobDescriptor, POLLIN, 0}, {g_stop_pipe[0], POLLIN, 0}};
    while (poll(watched, 2, -1) < 0 && errno == EINTR) {
    }
    remove_tree(job.scratch);
    remove_tree(job.scratch);  // again: the other thread may have made a file during the first
    std::error_code ignored;
    // The last worker of a killed run also clears the folder around it.
    const fs::path run = fs::path(job.scratch).parent_path();
    bool others = !watched[0].revents;
    for (const auto& entry : fs::directory_iterator(run, ignored)) {
        others = others || entry.is_directory(ignored);
    }
    if (!others) {
        remove_tree(run.string());
    }
    if (!job.output.empty()) {
        remove_own_parts(job.output);
    }
    _exit(128 + SIGTERM);
}

/** An error that is the file's, told to the user as it stands. */
class FileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Worker {
  public:
    explicit Worker(const Job& job) : job_(job) {}

    FileFacts run() {
        const auto start = std::chrono::steady_clock::now();
        FileFacts facts;
        facts.input = job_.input;
        facts.output = job_.output;
        facts_ = &facts;
        try {
            probe();
            if (job_.measure) {
                facts.before = measured(job_.input, 0, kMeasuredBefore);
            }
            if (job_.output.empty()) {
                facts.outcome = Outcome::Analyzed;
            } else {
                level();
            }
        } catch (const std::system_error& error) {
            fail(error.code().message(), error.what());
        } catch (const std::exception& error) {
            fail(error.what(), "");
        }
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        facts.elapsed_s = elapsed.count();
        return facts;
    }

  private:
    void fail(const std::string& cause, const std::string& detail) {
        facts_->outcome = Outcome::Failed;
        facts_->cause = detail.empty() ? cause : detail;
    }

    void progress(double fraction) {
        const int percent = static_cast<int>(fraction * 100);
        if (percent <= last_percent_) {
            return;
        }
        last_percent_ = percent;
        write_line(fmt::format("{{\"progress\": {}}}", percent / 100.0));
    }

    Loudness measured(const std::string& path, double from, double to) {
        return measure(path, [&](double done) { progress(from + (to - from) * done); });
    }

    SndfileHandle readable_input() const {
        try {
            return open_to_read(job_.input);
        } catch (const std::runtime_error& error) {
            throw FileError(fmt::format("cannot be read as audio: {}", error.what()));
        }
    }

    void probe() {
        if (access(job_.input.c_str(), R_OK) != 0) {
            throw std::system_error(errno, std::generic_category(), "cannot be read");
        }
        const SndfileHandle file = readable_input();
        info_.format = file.format();
        info_.channels = file.channels();
        info_.samplerate = file.samplerate();
        info_.frames = file.frames();
        SF_FORMAT_INFO major{info_.format & SF_FORMAT_TYPEMASK, nullptr, nullptr};
        SF_FORMAT_INFO minor{info_.format & SF_FORMAT_SUBMASK, nullptr, nullptr};
        sf_command(nullptr, SFC_GET_FORMAT_INFO, &major, sizeof major);
        sf_command(nullptr, SFC_GET_FORMAT_INFO, &minor, sizeof minor);
        facts_->format = fmt::format("{}, {}", major.name ? major.name : "unknown container",
                                     minor.name ? minor.name : "unknown coding");
        facts_->sample_rate_hz = info_.samplerate;
        facts_->channels = info_.channels;
        facts_->frames = info_.frames;
        if (job_.output.empty()) {
            return;
        }
        SF_INFO writable = info_;
        if (!sf_format_check(&writable)) {
            throw FileError(
                fmt::format("its format ({}) can be read but not written back", facts_->format));
        }
        if (fs::path(job_.input).extension().empty()) {
            throw FileError("its name has no extension, which the engine needs");
        }
    }

    void level() {
        const std::string extension = fs::path(job_.input).extension().string();
        const bool lossy = is_lossy(info_.format);
        std::string engine_input = job_.input;
        if (lossy) {
            engine_input = job_.scratch + "/decoded.wav";
            decode_to_float(job_.input, engine_input);
        }
        const std::string leveled = job_.scratch + "/leveled" + (lossy ? ".wav" : extension);
        const bool changed = run_engine(engine_input, leveled);
        if (!changed) {
            facts_->outcome = Outcome::Copied;
            facts_->after = facts_->before;
            return place(job_.input);
        }
        check_length(engine_input, leveled);
        std::string result = leveled;
        if (lossy) {
            result = job_.scratch + "/encoded" + extension;
            encode_like(leveled, job_.input, result);
        }
        if (job_.measure) {
            facts_->after = measured(result, kEngineDone, kMeasuredAfter);
        }
        result = with_metadata(result, extension);
        check_format(result);
        place(result);
        facts_->outcome = Outcome::Leveled;
    }

    static int on_engine_progress(void* context, float fraction) {
        auto& worker = *static_cast<Worker*>(context);
        worker.kept_->keep();
        if (fraction < 1) {
            worker.engine_worked_ = true;
        }
        worker.progress(worker.engine_start_ +
                        (kEngineDone - worker.engine_start_) * static_cast<double>(fraction));
        return 0;
    }

    // Returns false when the engine handed a copy of its input back.
    bool run_engine(const std::string& input, const std::string& output) {
        const PrivateDirectory intermediates(job_.scratch + "/engine");
        hooks::use_temporary_directory(intermediates.path());
        kept_.emplace(intermediates.path(), job_.scratch + "/kept");
        engine_start_ = job_.measure ? kMeasuredBefore : 0;

        std::vector<std::string> words = {"", "--input-file", input, "--output-file", output};
        words.insert(words.end(), job_.tuning.begin(), job_.tuning.end());
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(&word[0]);
        }
        argv.push_back(nullptr);
        const int result = levelMain(static_cast<int>(words.size()), argv.data(), "",
                                     &Worker::on_engine_progress, this);
        // Where the cause is empty the engine has said it, and the parent reads it.
        if (result != 0 && fs::space(job_.scratch).available < kFullDiskBytes) {
            throw FileError(
                fmt::format("the disk with the temporary files, {}, is full",
                            fs::path(job_.scratch).parent_path().parent_path().string()));
        }
        if (result != 0) {
            throw FileError("");
        }
        if (hooks::delivery() == hooks::kFailed) {
            throw FileError("");
        }
        if (hooks::delivery() == hooks::kNone) {
            if (static_cast<double>(info_.frames) < kShortestSeconds * info_.samplerate) {
                facts_->cause = "shorter than 0.05 s";
            } else if (!engine_worked_) {
                facts_->cause = all_zero(input) ? "silent" : "every sample is the same";
            }
            return false;
        }
        facts_->leveling = kept_->read(info_.frames);
        return true;
    }

    static bool all_zero(const std::string& path) {
        SndfileHandle file = open_to_read(path);
        std::vector<double> frame(static_cast<std::size_t>(file.channels()));
        file.readf(frame.data(), 1);
        return std::all_of(frame.begin(), frame.end(), [](double x) { return x == 0; });
    }

    void check_length(const std::string& input, const std::string& output) const {
        const SndfileHandle before = open_to_read(input);
        const SndfileHandle after = open_to_read(output);
        const double rate = before.samplerate();
        if (after.frames() == before.frames()) {
            return;
        }
        throw FileError(fmt::format(
            "the engine left it {:.2f} s {} than the input ({:.2f} s of {:.2f} s), so nothing was "
            "written; {}",
            static_cast<double>(std::abs(before.frames() - after.frames())) / rate,
            after.frames() < before.frames() ? "shorter" : "longer",
            static_cast<double>(after.frames()) / rate, static_cast<double>(before.frames()) / rate,
            "a passage below the noise threshold has this effect (a lower "
            "--calc-rms-floor-noise_threshold may help), and a --bin-size other than 50"));
    }

    void check_format(const std::string& path) {
        const SndfileHandle after = open_to_read(path);
        const bool new_depth =
            std::any_of(job_.tuning.begin(), job_.tuning.end(), [](const std::string& word) {
                return word.rfind("--bit-depth", 0) == 0 || word.rfind("--options-file", 0) == 0;
            });
        if (after.samplerate() != info_.samplerate || after.channels() != info_.channels ||
            (after.format() & SF_FORMAT_TYPEMASK) != (info_.format & SF_FORMAT_TYPEMASK) ||
            (!new_depth && after.format() != info_.format)) {
            throw FileError("the leveled file does not have the format of its input");
        }
        if (after.frames() != info_.frames) {
            facts_->notes.push_back(
                fmt::format("{} samples {} than its input after encoding",
                            std::abs(after.frames() - info_.frames),
                            after.frames() < info_.frames ? "shorter" : "longer"));
        }
    }

    std::string with_metadata(const std::string& audio, const std::string& extension) {
        const std::string complete = job_.scratch + "/complete" + extension;
        if (copy_chunks(job_.input, audio, complete, facts_->after ? &*facts_->after : nullptr)) {
            return complete;
        }
        copy_tags(job_.input, audio, info_.format);
        return audio;
    }

    void place(const std::string& file) {
        progress(kMeasuredAfter);
        remove_stale_parts(job_.output);
        StagedOutput staged(job_.output);
        staged.fill_from(file);
        if (job_.keep_mtime) {
            staged.take_time_of(job_.input);
        }
        try {
            staged.commit(job_.replace);
        } catch (const std::system_error& error) {
            if (error.code() != std::errc::file_exists) {
                throw;
            }
            throw FileError("the output came to exist meanwhile and was kept");
        }
        progress(1);
    }

    const Job& job_;
    FileFacts* facts_ = nullptr;
    SF_INFO info_{};
    std::optional<KeptFiles> kept_;
    double engine_start_ = 0;
    bool engine_worked_ = false;
    int last_percent_ = -1;
};

}  // namespace

int worker_main() {
#ifdef __linux__
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    prctl(PR_SET_NAME, "quorvane");  // else its name is that of the link it was started by
#endif
    if (pipe(g_stop_pipe) != 0) {
        return 1;
    }

    struct sigaction stop {};

    stop.sa_handler = ask_to_stop;
    sigaction(SIGTERM, &stop, nullptr);
    signal(SIGINT, SIG_IGN);  // the terminal sends it to all; the parent decides
    signal(SIGPIPE, SIG_IGN);

    static Job job;  // outlives the thread that watches
    try {
        job = read_job();
    } catch (const nlohmann::json::exception&) {
        return 1;  // the parent is gone or not ours
    }
    std::thread(watch, std::cref(job)).detach();
    const FileFacts facts = Worker(job).run();
    fflush(nullptr);
    write_line(dump({{"facts", to_json(facts)}}));
    return facts.outcome == Outcome::Failed ? 1 : 0;
}

}  // namespace cli
