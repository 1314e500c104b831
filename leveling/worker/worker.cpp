#include "leveling/worker/worker.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "leveling/facts/run_facts.h"
#include "leveling/storage/scratch.h"
#include "leveling/worker/confinement.h"
#include "leveling/worker/job.h"
#include "leveling/worker/look.h"
#include "leveling/worker/work_on.h"

#ifdef __linux__
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

/*
 * The frame around the work on one file, in a process of its own. The main thread does the work; a
 * second one waits for the end of the parent or for a signal, removes the job's files and ends the
 * process, whatever the first one is doing at that moment: the engine cannot be asked to hurry.
 * Events go to the parent as lines of JSON on a descriptor of their own, so that what a library
 * prints on the standard streams cannot be taken for one.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

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

/** So many bytes, fewer at the pipe's end. */
std::string read_job_bytes(std::size_t count) {
    std::string bytes;
    char block[1 << 12];
    while (bytes.size() < count) {
        const ssize_t got =
            read(kJobDescriptor, block, std::min(sizeof block, count - bytes.size()));
        if (got == 0 || (got < 0 && errno != EINTR)) {
            break;
        }
        bytes.append(block, got > 0 ? static_cast<std::size_t>(got) : 0);
    }
    return bytes;
}

/** Their length comes in a line before them; not a byte more is read: the pipe is watched. */
std::vector<Job> read_jobs() {
    constexpr std::size_t kMostDigits = 9;
    std::string digits;
    while (digits.size() < kMostDigits) {
        const std::string digit = read_job_bytes(1);
        if (digit.empty() || digit == "\n") {
            break;
        }
        digits += digit;
    }
    return nlohmann::json::from_cbor(read_job_bytes(std::strtoul(digits.c_str(), nullptr, 10)))
        .get<std::vector<Job>>();
}

void ask_to_stop(int) {
    (void)!write(g_stop_pipe[1], "", 1);
}

/**
 * Removes a folder in which other threads still work: what they make while it is being removed
 * keeps it, or even creates it again, so removal repeats until it is gone.
 */
void remove_for_good(const std::string& folder) {
    constexpr int kMostTries = 200;
    std::error_code ignored;
    for (int i = 0; i < kMostTries && fs::exists(folder, ignored); ++i) {
        remove_tree(folder);
        std::this_thread::sleep_for(std::chrono::milliseconds(i < 3 ? 0 : 5));
    }
}

/**
 * Waits for a signal or for the end of the parent, then removes the job's files and ends the
 * process. What the other thread writes meanwhile fails, as its folder is gone. The part belongs to
 * the parent, or to the next run.
 */
void watch(const std::string& scratch, pid_t parent) {
    pollfd watched[2] = {{kJobDescriptor, POLLIN, 0}, {g_stop_pipe[0], POLLIN, 0}};
    while (poll(watched, 2, -1) < 0 && errno == EINTR) {
    }
    if (!scratch.empty()) {
        remove_for_good(scratch);
        std::error_code ignored;
        // The last worker of a killed run also clears the folder around it. The death of the parent
        // shows in the end of the job's pipe; or first in another parent, while a worker that was
        // just being started still holds the other end of that pipe.
        const fs::path run = fs::path(scratch).parent_path();
        bool others = !watched[0].revents && getppid() == parent;
        for (const auto& entry : fs::directory_iterator(run, ignored)) {
            others = others || entry.is_directory(ignored);
        }
        if (!others) {
            remove_for_good(run.string());
        }
    }
    _exit(128 + SIGTERM);
}

/** Tells the parent each whole percent once. */
class ProgressEvents {
  public:
    void operator()(double fraction) {
        const int percent = static_cast<int>(fraction * 100);
        if (percent > last_percent_) {
            last_percent_ = percent;
            write_line(fmt::format("{{\"progress\": {}}}", percent / 100.0));
        }
    }

  private:
    int last_percent_ = -1;
};

/** What came with the program's start and is not one of the streams or pipes. */
void close_unused_descriptors() {
    constexpr unsigned kFirst = kEventDescriptor + 1;
#if defined(__linux__) && defined(SYS_close_range)
    if (syscall(SYS_close_range, kFirst, ~0U, 0) == 0) {
        return;
    }
#endif
    struct rlimit limit {};

    constexpr rlim_t kMost = 1 << 16;
    getrlimit(RLIMIT_NOFILE, &limit);
    for (rlim_t number = kFirst; number < std::min(limit.rlim_cur, kMost); ++number) {
        close(static_cast<int>(number));
    }
}

void set_up_signals() {
    struct sigaction stop {};

    stop.sa_handler = ask_to_stop;
    sigaction(SIGTERM, &stop, nullptr);
    signal(SIGINT, SIG_IGN);  // the terminal sends it to all; the parent decides
    signal(SIGPIPE, SIG_IGN);
}

std::vector<std::string> missing_fences(const Confined& confined) {
    std::vector<std::string> missing;
    if (!confined.files) {
        missing.push_back("files");
    }
    if (!confined.calls) {
        missing.push_back("calls");
    }
    return missing;
}

/** Returns the process's status. */
int work_on_all(const std::vector<Job>& jobs, const std::vector<std::string>& unfenced) {
    std::vector<WorkResult> results =
        jobs.size() == 1 ? std::vector<WorkResult>{work_on(jobs[0], ProgressEvents())}
                         : work_on_group(jobs, ProgressEvents());
    fflush(nullptr);
    remove_tree(jobs.front().scratch);  // not left to the parent, which may be killed any moment
    bool has_failed = false;
    for (WorkResult& result : results) {
        result.facts.unfenced = unfenced;
        has_failed = has_failed || result.facts.outcome == Outcome::Failed;
        write_line(dump(to_json(result)));
    }
    return has_failed ? 1 : 0;
}

void look_at_each(const std::vector<Job>& jobs, const std::vector<std::string>& unfenced) {
    if (jobs.front().compare) {
        write_line(dump({{"look", 0}, {"sets", conversations_of(jobs)}}));
        fflush(nullptr);
        return;
    }
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        if (!jobs[i].excerpts_for.empty()) {
            write_line(dump({{"look", i}, {"text", excerpts_of(jobs[i])}}));
            continue;
        }
        FileFacts facts = look_into(jobs[i]);
        facts.unfenced = unfenced;
        write_line(dump({{"look", i}, {"facts", to_json(facts)}}));
    }
    fflush(nullptr);
}

}  // namespace

int worker_main() {
    const pid_t parent = getppid();
#ifdef __linux__
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    prctl(PR_SET_NAME, "quorvane");  // else its name is that of the link it was started by
#endif
    close_unused_descriptors();
    if (pipe(g_stop_pipe) != 0) {
        return 1;
    }
    set_up_signals();

    static std::vector<Job> jobs;  // they outlive the thread that watches
    try {
        jobs = read_jobs();
    } catch (const nlohmann::json::exception&) {
        return 1;  // the parent is gone or not ours
    }
    if (jobs.empty()) {
        return 1;
    }
    const std::vector<std::string> unfenced = missing_fences(confine(jobs));
    const bool looks = jobs.front().scratch.empty();
    std::thread(watch, std::cref(jobs.front().scratch), parent).detach();
    int status = 0;
    if (looks) {
        look_at_each(jobs, unfenced);
    } else {
        status = work_on_all(jobs, unfenced);
    }
    while (getppid() != parent) {
        pause();  // the other thread clears up what the parent has left, and ends the process
    }
    return status;
}

}  // namespace quorvane
