#include "cli/worker/worker_process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>
#include <vector>

#include "Common/files/descriptor.h"
#include "cli/archive/output_claim.h"
#include "cli/storage/scratch.h"
#include "cli/storage/staged_output.h"
#include "cli/worker/own_program.h"

extern char** environ;

/*
 * The worker is started with posix_spawn: the parent may have threads, and a fork in between would
 * copy their locks. Every descriptor is closed on exec except the four that the worker expects. The
 * job's pipe stays open in the parent for as long as it lives; its end is how a worker learns that
 * the parent was killed, on every system. On Linux the kernel also signals it.
 */

namespace cli {
namespace {

constexpr std::size_t kMostMessageBytes = 1 << 16;  // of the last messages
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
    static int move_up(int descriptor) {
        const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
        close(descriptor);
        if (moved < 0) {
            fail("a pipe to the worker");
        }
        return moved;
    }
};

/** Reads what is there; false at the end. */
bool read_available(int descriptor, std::string& text) {
    char block[4096];
    for (;;) {
        const ssize_t got = read(descriptor, block, sizeof block);
        if (got > 0) {
            text.append(block, static_cast<std::size_t>(got));
        } else if (got < 0 && errno == EINTR) {
            continue;
        } else {
            return got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
        }
    }
}

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

WorkerProcess::WorkerProcess(const Job& job) : job_(job) {
    // File names may hold any bytes, which JSON's text form does not.
    const std::vector<std::uint8_t> bytes = nlohmann::json::to_cbor(job);
    const std::string message =
        fmt::format("{}\n", bytes.size()) + std::string(bytes.begin(), bytes.end());
    Pipe job_pipe;
    Pipe event_pipe;
    Pipe output_pipe;

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output_pipe.write_end, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output_pipe.write_end, STDERR_FILENO);
    posix_spawn_file_actions_adddup2(&actions, job_pipe.read_end, kJobDescriptor);
    posix_spawn_file_actions_adddup2(&actions, event_pipe.write_end, kEventDescriptor);

    std::string name = "quorvane";
    std::string word = kWorkerWord;
    char* argv[] = {&name[0], &word[0], nullptr};
    const int error = posix_spawn(&pid_, own_program().c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error) {
        throw std::system_error(error, std::generic_category(), "a worker cannot be started");
    }

    job_end_ = Pipe::release(job_pipe.write_end);
    events_ = Pipe::release(event_pipe.read_end);
    output_ = Pipe::release(output_pipe.read_end);
    fcntl(events_, F_SETFL, O_NONBLOCK);
    fcntl(output_, F_SETFL, O_NONBLOCK);
    // A worker that died already, or one that gets half its job, shows in finish().
    if (!write_all(job_end_, message.data(), message.size())) {
        not_told_ = errno;
        close(std::exchange(job_end_, -1));
    }
}

WorkerProcess::~WorkerProcess() {
    if (pid_ > 0) {  // an error ends the run: the worker removes its files, and then we go
        kill(pid_, SIGTERM);
        while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    for (int descriptor : {job_end_, events_, output_}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

void WorkerProcess::read_events() {
    const bool more = read_available(events_, event_text_);
    for (std::size_t end = 0; (end = event_text_.find('\n')) != std::string::npos;) {
        take_event(event_text_.substr(0, end));
        event_text_.erase(0, end + 1);
    }
    if (!more) {
        close(events_);
        events_ = -1;
    }
}

void WorkerProcess::take_event(const std::string& line) {
    try {
        const auto event = nlohmann::ordered_json::parse(line);
        if (event.contains("progress")) {
            progress_ = event["progress"];
        }
        if (event.contains("facts")) {
            facts_ = facts_from_json(event["facts"]);
        }
    } catch (const nlohmann::json::exception&) {
        // Half a line of a worker that died; finish() tells.
    }
}

void WorkerProcess::read_output() {
    if (!read_available(output_, messages_)) {
        close(output_);
        output_ = -1;
    }
    if (messages_.size() > kMostMessageBytes) {
        messages_.erase(0, messages_.size() - kMostMessageBytes);
    }
}

void WorkerProcess::send_signal(int signal) const {
    if (pid_ > 0) {
        kill(pid_, signal);
    }
}

// What a worker that died could not remove itself.
void WorkerProcess::clear_up() const {
    remove_stale_parts(job_.output);
    try {
        OutputClaim().take(job_.output, job_.new_folder, WhenTaken::Leave);
    } catch (const std::system_error&) {
        // The folder cannot be written any more: then nothing can be removed either.
    }
}

FileFacts WorkerProcess::finish() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    remove_tree(job_.scratch);
    if (!facts_ && !job_.output.empty()) {
        clear_up();
    }

    FileFacts facts = facts_.value_or(FileFacts{});
    facts.input = job_.input;
    facts.output = job_.output;
    if (!facts_) {
        const std::string said = last_words(messages_);
        facts.outcome = Outcome::Failed;
        if (not_told_ != 0) {
            facts.cause =
                fmt::format("its worker process could not be told of it: {}", strerror(not_told_));
            return facts;
        }
        facts.cause = WIFSIGNALED(status)
                          ? fmt::format("its worker process was ended by signal {} ({})",
                                        WTERMSIG(status), strsignal(WTERMSIG(status)))
                          : fmt::format("its worker process ended with status {} and no result",
                                        WEXITSTATUS(status));
        if (!said.empty()) {
            facts.cause += ": " + said;
        }
        return facts;
    }
    return facts;
}

}  // namespace cli
