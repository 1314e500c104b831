#include "leveling/worker/child_process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

#include "Common/files/descriptor.h"
#include "leveling/worker/own_program.h"

extern char** environ;

/*
 * The worker is started with posix_spawn: the parent may have threads, and a fork in between would
 * copy their locks. Every descriptor is closed on exec except the four that the worker expects. The
 * job's pipe stays open in the parent for as long as it lives; its end is how a worker learns that
 * the parent was killed, on every system. On Linux the kernel also signals it.
 */

namespace quorvane {
namespace {

constexpr std::size_t kMostMessageBytes = 1 << 16;  // of the last messages
// Of one event. Facts of a day of audio have some hundred thousand bytes.
constexpr std::size_t kMostEventBytes = std::size_t{16} << 20;
constexpr std::size_t kMostBytesAtOnce = 1 << 20;  // so that one worker cannot keep the parent
constexpr std::chrono::seconds kTimeToEnd{60};     // with closed pipes, or after SIGTERM
constexpr int kFirstFreeDescriptor =
    10;  // above those that the worker expects to find its pipes at

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/** A pipe whose ends no other worker inherits. */
struct Pipe {
    int read_end = -1;
    int write_end = -1;

    Pipe() {
        int ends[2];
        if (pipe(ends) != 0) {
            fail("a pipe to the worker");
        }
        read_end = move_up(ends[0]);
        write_end = move_up(ends[1]);
    }

    ~Pipe() {
        if (read_end >= 0) {
            close(read_end);
        }
        if (write_end >= 0) {
            close(write_end);
        }
    }

    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    static int release(int& end) { return std::exchange(end, -1); }

  private:
    /** To a number that the worker does not use, closed on exec. Throws std::system_error. */
    static int move_up(int descriptor) {
        const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
        close(descriptor);
        if (moved < 0) {
            fail("a pipe to the worker");
        }
        return moved;
    }
};

/** Reads what is there, up to a bound; false at the end. */
bool read_available(int descriptor, std::string& text) {
    char block[4096];
    for (std::size_t bytes = 0; bytes < kMostBytesAtOnce;) {
        const ssize_t got = read(descriptor, block, sizeof block);
        if (got > 0) {
            text.append(block, static_cast<std::size_t>(got));
            bytes += static_cast<std::size_t>(got);
        } else if (got < 0 && errno == EINTR) {
            continue;
        } else {
            return got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
        }
    }
    return true;
}

/** Different lines in their order, without empty ones; a carriage return ends a line as well. */
std::vector<std::string> lines_of(const std::string& messages) {
    std::vector<std::string> lines;
    boost::split(lines, messages, boost::is_any_of("\r\n"), boost::token_compress_on);
    for (std::string& line : lines) {
        boost::trim(line);
    }
    std::vector<std::string> different;
    for (const std::string& line : lines) {
        if (!line.empty() &&
            std::find(different.begin(), different.end(), line) == different.end()) {
            different.push_back(line);
        }
    }
    return different;
}

/** The last few lines that a worker wrote before it died, as one. */
std::string last_words(const std::string& messages) {
    constexpr std::size_t kLines = 3;
    std::vector<std::string> lines = lines_of(messages);
    if (lines.size() > kLines) {
        lines.erase(lines.begin(), lines.end() - kLines);
    }
    return boost::join(lines, "; ");
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<Job>& jobs) {
    // File names may hold any bytes, which JSON's text form does not.
    const std::vector<std::uint8_t> bytes = nlohmann::json::to_cbor(jobs);
    start(fmt::format("{}\n", bytes.size()) + std::string(bytes.begin(), bytes.end()));
}

void ChildProcess::start(const std::string& message) {
    Pipe job_pipe;
    Pipe event_pipe;
    Pipe output_pipe;

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // The standard input is empty, and both outputs go to one pipe for messages.
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output_pipe.write_end, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output_pipe.write_end, STDERR_FILENO);
    posix_spawn_file_actions_adddup2(&actions, job_pipe.read_end, kJobDescriptor);
    posix_spawn_file_actions_adddup2(&actions, event_pipe.write_end, kEventDescriptor);

    std::string name = "quorvane";
    std::string word = kWorkerWord;
    char* argv[] = {&name[0], &word[0], nullptr};
    // The same program once more, with the word that makes it a worker.
    const int error = posix_spawn(&pid_, own_program().c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error) {
        pid_ = -1;
        throw std::system_error(error, std::generic_category(), "a worker cannot be started");
    }

    // What is not released here, the worker's ends, is closed at the end of this function.
    job_end_ = Pipe::release(job_pipe.write_end);
    events_ = Pipe::release(event_pipe.read_end);
    output_ = Pipe::release(output_pipe.read_end);
    // One worker must not block the parent, which reads from all of them.
    fcntl(events_, F_SETFL, O_NONBLOCK);
    fcntl(output_, F_SETFL, O_NONBLOCK);
    // A worker that died already, or one that gets half its job, shows at its end.
    if (!write_all(job_end_, message.data(), message.size())) {
        send_error_ = errno;
        close(std::exchange(job_end_, -1));
    }
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0) {  // an error ends the run: the worker removes its files, and then we go
        kill(pid_, SIGTERM);
        wait();
    }
    for (int descriptor : {job_end_, events_, output_}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

void ChildProcess::read_events(const std::function<void(const nlohmann::ordered_json&)>& take) {
    if (events_ < 0) {
        return;
    }
    // Only the new bytes can hold a line end.
    const std::size_t searched = event_text_.size();
    const bool more = read_available(events_, event_text_);
    std::size_t begin = 0;
    for (std::size_t end = event_text_.find('\n', searched); end != std::string::npos;
         end = event_text_.find('\n', begin)) {
        try {
            take(nlohmann::ordered_json::parse(event_text_.substr(begin, end - begin)));
        } catch (const nlohmann::json::exception&) {  // NOLINT(bugprone-empty-catch)
            // Half a line of a worker that died: then it gave no answer.
        }
        begin = end + 1;
    }
    // What is left is the beginning of a line.
    event_text_.erase(0, begin);
    // A worker that was taken over could fill the parent's memory.
    too_long_ = too_long_ || event_text_.size() > kMostEventBytes;
    if (too_long_) {
        event_text_ = std::string();
        send_signal(SIGKILL);
    }
    if (!more || too_long_) {
        close(std::exchange(events_, -1));
    }
}

void ChildProcess::read_output() {
    if (output_ < 0) {
        return;
    }
    if (!read_available(output_, messages_)) {
        close(std::exchange(output_, -1));
    }
    // The end of the messages is kept, as it holds the cause.
    if (messages_.size() > kMostMessageBytes) {
        messages_.erase(0, messages_.size() - kMostMessageBytes);
    }
}

bool ChildProcess::at_end() {
    // Both pipes are closed, or the process has ended.
    return (events_ < 0 && output_ < 0) || reap(WNOHANG);
}

void ChildProcess::send_signal(int signal) const {
    if (pid_ > 0) {
        kill(pid_, signal);
    }
}

/** True when the process has ended. */
bool ChildProcess::reap(int options) {
    if (pid_ <= 0) {
        return true;
    }
    pid_t ended = 0;
    do {
        ended = waitpid(pid_, &status_, options);
    } while (ended < 0 && errno == EINTR);
    if (ended != 0) {
        pid_ = -1;
    }
    return ended != 0;
}

int ChildProcess::wait() {
    // waitpid() knows no time limit, so it is called every millisecond.
    constexpr std::chrono::milliseconds kPause{1};
    const auto latest = std::chrono::steady_clock::now() + kTimeToEnd;
    while (!reap(WNOHANG)) {
        if (std::chrono::steady_clock::now() > latest) {
            send_signal(SIGKILL);
            reap(0);
            break;
        }
        std::this_thread::sleep_for(kPause);
    }
    return status_;
}

std::string ChildProcess::cause_of_end() {
    const int status = wait();
    if (too_long_) {
        return fmt::format("its worker process sent more than {} MB without a line end",
                           kMostEventBytes >> 20);
    }
    if (send_error_ != 0) {
        return fmt::format("the job could not be sent to its worker process: {}",
                           strerror(send_error_));
    }
    const std::string cause =
        WIFSIGNALED(status) ? fmt::format("its worker process was ended by signal {} ({})",
                                          WTERMSIG(status), strsignal(WTERMSIG(status)))
                            : fmt::format("its worker process ended with status {} and no result",
                                          WEXITSTATUS(status));
    const std::string last = last_words(messages_);
    return last.empty() ? cause : cause + ": " + last;
}

}  // namespace quorvane
