#include "cli/batch/batch.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include "cli/archive/output_claim.h"
#include "cli/facts/file_error.h"
#include "cli/worker/worker_process.h"

/*
 * One thread, that of run(), owns the workers and calls the observer; it sleeps in poll() on the
 * pipes of the workers and on one pipe of its own. Every other thread only changes what stands
 * under the mutex, or the stop flag, and writes a byte into that pipe. So nothing is locked while
 * an observer is called, a request that comes between two looks at the queue is never lost, and a
 * signal handler can ask for a stop with no more than an atomic store and a write.
 *
 * A file's worker is a process: a codec that crashes, a limit of the system, or a kill costs one
 * file. Its facts come through a pipe, its messages through another; it has ended when both are
 * closed.
 */

namespace cli {
namespace fs = std::filesystem;

namespace {

constexpr int kPollMilliseconds = 200;  // between two ticks

}  // namespace

Batch::Batch(unsigned jobs, JobOptions options, BatchObserver& observer)
    : jobs_(std::max(jobs, 1u)), options_(std::move(options)), observer_(observer) {
    if (pipe(wake_) != 0) {
        throw std::system_error(errno, std::generic_category(), "a pipe");
    }
    for (int end : wake_) {
        fcntl(end, F_SETFD, FD_CLOEXEC);
        fcntl(end, F_SETFL, O_NONBLOCK);
    }
}

Batch::~Batch() {
    for (int end : wake_) {
        ::close(end);
    }
}

std::size_t Batch::add(const std::string& input, const std::string& output) {
    return add(input, output, options_.replace ? Existing::Replace : Existing::Keep);
}

std::size_t Batch::add(const std::string& input, const std::string& output, Existing existing) {
    return add(input, output, existing, state_of(output));
}

std::size_t Batch::add(const std::string& input,
                       const std::string& output,
                       Existing existing,
                       const FileState& found) {
    // Asked before anything is made: it is removed again if the file is not leveled after all.
    const std::string new_folder = output.empty() ? "" : missing_folder(output);
    std::size_t index = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        index = added_++;
        queue_.push_back({index, input, output, existing, found, new_folder});
    }
    wake();
    return index;
}

void Batch::cancel(std::size_t index) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        cancelled_.insert(index);
    }
    wake();
}

void Batch::close() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
    }
    wake();
}

void Batch::stop(Stop how) {
    // Only what a signal handler may do: no lock, no memory.
    stop_.store(how == Stop::Now ? 2 : 1);
    const int error = errno;
    wake();
    errno = error;
}

void Batch::wake() const {
    // A full pipe will wake run() anyway.
    (void)!write(wake_[1], "", 1);
}

void Batch::drain() const {
    char bytes[64];
    while (read(wake_[0], bytes, sizeof bytes) > 0) {
    }
}

void Batch::run() {
    while (!ended()) {
        take_requests();
        start_more();
        wait();
        tell_progress();
        collect();
        if (!running_.empty()) {
            observer_.tick();
        }
    }
}

// Closed and worked off, or stopped and nobody running any more.
bool Batch::ended() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return running_.empty() && queue_.empty() && (closed_ || stop_.load() != 0);
}

// Ends the cancelled files: the waiting ones here, the running ones by a signal.
void Batch::take_requests() {
    const int stop = stop_.load();
    std::vector<Entry> never_begun;
    std::set<std::size_t> cancelled;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        cancelled.swap(cancelled_);
        if (stop == 0 && cancelled.empty()) {
            return;  // without a look at a queue that may hold a hundred thousand files
        }
        const auto keeps = [&](const Entry& entry) {
            return stop == 0 && cancelled.count(entry.index) == 0;
        };
        const auto first = std::stable_partition(queue_.begin(), queue_.end(), keeps);
        never_begun.assign(first, queue_.end());
        queue_.erase(first, queue_.end());
    }
    for (Running& running : running_) {
        if (stop > stop_sent_ || cancelled.count(running.entry.index) != 0) {
            // Once for each stage of a stop: a worker that cleans up is not disturbed again.
            running.cancelled = true;
            running.worker->send_signal(stop == 2 ? SIGKILL : SIGTERM);
        }
    }
    stop_sent_ = stop;
    for (const Entry& entry : never_begun) {
        end_without_worker(entry, Outcome::Interrupted, "stopped");
    }
}

void Batch::start_more() {
    while (running_.size() < jobs_) {
        Entry entry;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (stop_.load() != 0 || queue_.empty()) {
                return;
            }
            entry = queue_.front();
            queue_.pop_front();
        }
        start(entry);
    }
}

void Batch::start(const Entry& entry) {
    Job job;
    job.input = fs::absolute(entry.input).string();
    if (!entry.output.empty()) {
        job.output = fs::absolute(entry.output).string();
    }
    job.scratch = fmt::format("{}{}", scratch_.path(), entry.index);
    job.options = options_;
    job.options.replace = entry.existing == Existing::Replace;
    job.options.redo_changed = options_.redo_changed || entry.existing == Existing::Renew;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        // Fewer files than processors: this worker may use a second one.
        job.spare_processor = running_.size() + 1 + queue_.size() < jobs_;
    }
    job.found = entry.found;
    job.new_folder = entry.new_folder;
    job.wait = entry.wait;
    try {
        fs::create_directory(job.scratch);
        running_.push_back({entry, Clock::now(), std::make_unique<WorkerProcess>(job), -1, false});
    } catch (const std::exception& error) {
        return end_without_worker(entry, Outcome::Failed, cause_of(error));
    }
    observer_.started(entry.index);
}

void Batch::wait() {
    // The own pipe first, then two for each worker, in the order of running_.
    std::vector<pollfd> watched = {{wake_[0], POLLIN, 0}};
    for (const Running& running : running_) {
        watched.push_back({running.worker->events(), POLLIN, 0});
        watched.push_back({running.worker->output(), POLLIN, 0});
    }
    // Without a worker nothing changes by itself: sleep until somebody asks for something.
    if (ended() ||
        poll(watched.data(), watched.size(), running_.empty() ? -1 : kPollMilliseconds) <= 0) {
        return;
    }
    drain();
    for (std::size_t i = 0; i < running_.size(); ++i) {
        if (watched[1 + 2 * i].revents) {
            running_[i].worker->read_events();
        }
        if (watched[2 + 2 * i].revents) {
            running_[i].worker->read_output();
        }
    }
}

// Forwards only: a second pass over a file must not look like a step back.
void Batch::tell_progress() {
    for (Running& running : running_) {
        const double fraction = running.worker->progress();
        if (fraction > running.told_fraction) {
            running.told_fraction = fraction;
            observer_.progress(running.entry.index, fraction);
        }
    }
}

void Batch::collect() {
    for (std::size_t i = 0; i < running_.size();) {
        if (!running_[i].worker->at_end()) {
            ++i;
            continue;
        }
        Running ended = std::move(running_[i]);
        running_.erase(running_.begin() + static_cast<std::ptrdiff_t>(i));
        finish(ended);
    }
}

void Batch::finish(Running& ended) {
    FileFacts facts = ended.worker->finish();
    if (facts.outcome == Outcome::Planned && !ended.cancelled) {
        // Another process holds the output: when the rest is done it may have finished.
        ended.entry.wait = true;
        const std::lock_guard<std::mutex> lock(mutex_);
        return queue_.push_back(ended.entry);
    }
    facts.input = ended.entry.input;
    facts.output = ended.entry.output;
    if (facts.elapsed_s == 0) {
        facts.elapsed_s = std::chrono::duration<double>(Clock::now() - ended.started).count();
    }
    // A worker that was told to stop fails in whatever it was doing: that is no failure of the
    // file.
    if (ended.cancelled &&
        (facts.outcome == Outcome::Failed || facts.outcome == Outcome::Planned)) {
        facts.outcome = Outcome::Interrupted;
        facts.cause = "stopped";
    }
    if (!ended.worker->messages().empty()) {
        observer_.messages(ended.entry.index, ended.worker->messages());
    }
    observer_.finished(ended.entry.index, facts);
}

void Batch::end_without_worker(const Entry& entry, Outcome outcome, const std::string& cause) {
    FileFacts facts;
    facts.input = entry.input;
    facts.output = entry.output;
    facts.outcome = outcome;
    facts.cause = cause;
    observer_.finished(entry.index, facts);
}

}  // namespace cli
