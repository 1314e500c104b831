#include "leveling/watch/done_program.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

extern char** environ;

namespace quorvane {
namespace fs = std::filesystem;

namespace {

// Of every variable that the program gets.
constexpr const char* kPrefix = "QUORVANE_";

/** Absolute, so that the program may change its working folder. Empty stays empty. */
std::string absolute(const std::string& path) {
    std::error_code error;
    return path.empty() ? path : fs::absolute(path, error).lexically_normal().string();
}

/** Our environment with the results in place of variables of such names. */
std::vector<std::string> environment_for(const FileFacts& facts) {
    std::vector<std::string> variables;
    // Those of an outer run would look like results.
    for (char** variable = environ; *variable; ++variable) {
        if (std::strncmp(*variable, kPrefix, std::strlen(kPrefix)) != 0) {
            variables.emplace_back(*variable);
        }
    }
    const auto add = [&](const char* name, const std::string& value) {
        variables.push_back(fmt::format("{}{}={}", kPrefix, name, value));
    };
    add("INPUT", absolute(facts.input));
    add("OUTPUT", absolute(facts.output));
    add("OUTCOME", to_text(facts.outcome));
    add("CAUSE", facts.cause);
    // In seconds; the levels below are in LUFS and dBTP.
    add("DURATION", fmt::format("{:.3f}", facts.duration_s()));
    if (facts.before) {
        add("LUFS_BEFORE", fmt::format("{:.1f}", facts.before->integrated_lufs));
    }
    if (facts.after) {
        add("LUFS_AFTER", fmt::format("{:.1f}", facts.after->integrated_lufs));
        add("TRUE_PEAK_AFTER", fmt::format("{:.1f}", facts.after->true_peak_dbtp));
    }
    return variables;
}

/** Starts the program; returns 0 or an errno. */
int start(const std::string& program, const FileFacts& facts, pid_t& pid) {
    std::vector<std::string> variables = environment_for(facts);
    std::vector<char*> environment;
    environment.reserve(variables.size() + 1);
    for (std::string& variable : variables) {
        // The call takes pointers into the strings, which outlive it.
        environment.push_back(&variable[0]);
    }
    environment.push_back(nullptr);
    std::string name = program;
    char* argv[] = {&name[0], nullptr};

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    // The standard output may be our lines of JSON.
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A process group of its own, so that all that the program starts can be ended with it.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setpgroup(&attributes, 0);
    sigset_t usual;
    sigemptyset(&usual);
    // Ignored signals are inherited; the program gets their usual meaning back.
    for (const int number : {SIGPIPE, SIGHUP, SIGINT, SIGTERM, SIGIO}) {
        sigaddset(&usual, number);
    }
    posix_spawnattr_setsigdefault(&attributes, &usual);
    const int error =
        posix_spawn(&pid, program.c_str(), &actions, &attributes, argv, environment.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

/** Waits for the process; false when it was killed for taking too long. */
bool wait_for(pid_t pid, std::chrono::milliseconds limit, int& status) {
    // A wait with a limit; the pauses grow, so that a slow program costs nothing.
    constexpr std::chrono::milliseconds kLongestPause{100};
    std::chrono::milliseconds pause{1};
    const auto latest = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const pid_t ended = waitpid(pid, &status, WNOHANG);
        // Any error but EINTR means that there is nothing to wait for.
        if (ended == pid || (ended < 0 && errno != EINTR)) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= latest) {
            // The whole process group.
            kill(-pid, SIGKILL);
            while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
            return false;
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, kLongestPause);
    }
}

}  // namespace

DoneProgram::DoneProgram(std::string program,
                         std::function<void(const std::string&)> failed,
                         std::chrono::milliseconds limit)
    : program_(std::move(program)),
      failed_(std::move(failed)),
      limit_(limit),
      thread_([this] { work(); }) {}

DoneProgram::~DoneProgram() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ending_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void DoneProgram::add(const FileFacts& facts) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        queue_.push_back(facts);
        // The program gets neither curves nor passages, so they need not wait in memory.
        strip_details(queue_.back());
    }
    changed_.notify_one();
}

std::size_t DoneProgram::drop() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::size_t count = queue_.size();
    queue_.clear();
    return count;
}

void DoneProgram::work() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return ending_ || !queue_.empty(); });
        // The end was requested, and all that was queued has run.
        if (queue_.empty()) {
            return;
        }
        const FileFacts facts = std::move(queue_.front());
        queue_.pop_front();
        // add() must not wait for a program that takes long.
        lock.unlock();
        if (const std::string problem = run(facts); !problem.empty()) {
            failed_(fmt::format("--on-done {} failed for {}: {}", program_, facts.input, problem));
        }
        lock.lock();
    }
}

/** Returns why it failed, "" when it did not. */
std::string DoneProgram::run(const FileFacts& facts) const {
    pid_t pid = 0;
    if (const int error = start(program_, facts, pid); error != 0) {
        return fmt::format("it cannot be started: {}", std::strerror(error));
    }
    int status = 0;
    if (!wait_for(pid, limit_, status)) {
        return fmt::format("it was ended because it took longer than {:g} s",
                           std::chrono::duration<double>(limit_).count());
    }
    if (WIFSIGNALED(status)) {
        return fmt::format("it was ended by signal {} ({})", WTERMSIG(status),
                           strsignal(WTERMSIG(status)));
    }
    return WEXITSTATUS(status) == 0 ? ""
                                    : fmt::format("it ended with status {}", WEXITSTATUS(status));
}

}  // namespace quorvane
