#include "cli/worker/worker.h"

#include <fmt/format.h>
#include <poll.h>
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

#include "cli/facts/run_facts.h"
#include "cli/storage/scratch.h"
#include "cli/storage/staged_output.h"
#include "cli/worker/confinement.h"
#include "cli/worker/file_work.h"
#include "cli/worker/job.h"

#ifdef __linux__
#include <sys/prctl.h>
#endif

/*
 * The frame around the work on one file, in a process of its own. The main thread does the work; a
 * second one waits for the end of the parent or for a signal, removes the job's files and ends the
 * process, whatever the first one is doing at that moment: the engine cannot be asked to hurry.
 * Events go to the parent as lines of JSON on a descriptor of their own, so that what a library
 * prints on the standard streams cannot be taken for one.
 */

namespace cli {
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

/** Its length comes in a line before it; not a byte more is read, since the pipe is watched. */
Job read_job() {
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
        .get<Job>();
}

void ask_to_stop(int) {
    (void)!write(g_stop_pipe[1], "", 1);
}

/**
 * Removes a folder in which other threads still work: what they make while it is being removed
 * keeps it, or even makes it anew, so it is removed until it is gone.
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
 * process. What the other thread writes meanwhile fails, as its folder is gone.
 */
void watch(const Job& job, OutputClaim& claim, pid_t parent) {
    pollfd watched[2] = {{kJobDescriptor, POLLIN, 0}, {g_stop_pipe[0], POLLIN, 0}};
    while (poll(watched, 2, -1) < 0 && errno == EINTR) {
    }
    remove_for_good(job.scratch);
    std::error_code ignored;
    // The last worker of a killed run also clears the folder around it. The death of the parent
    // shows in the end of the job's pipe; or first in another parent, while a worker that was just
    // being started still holds the other end of that pipe.
    const fs::path run = fs::path(job.scratch).parent_path();
    bool others = !watched[0].revents && getppid() == parent;
    for (const auto& entry : fs::directory_iterator(run, ignored)) {
        others = others || entry.is_directory(ignored);
    }
    if (!others) {
        remove_for_good(run.string());
    }
    if (!job.output.empty()) {
        remove_own_parts(job.output);
    }
    claim.release();
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

}  // namespace

int worker_main() {
    const pid_t parent = getppid();
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

    static Job job;  // they outlive the thread that watches
    static OutputClaim claim;
    try {
        job = read_job();
    } catch (const nlohmann::json::exception&) {
        return 1;  // the parent is gone or not ours
    }
    confine(job);
    std::thread(watch, std::cref(job), std::ref(claim), parent).detach();
    const FileFacts facts = work_on(job, claim, ProgressEvents());
    fflush(nullptr);
    remove_tree(job.scratch);  // not left to the parent, which may be killed any moment
    write_line(dump({{"facts", to_json(facts)}}));
    while (getppid() != parent) {
        pause();  // the other thread clears up what the parent has left, and ends the process
    }
    return facts.outcome == Outcome::Failed ? 1 : 0;
}

}  // namespace cli
