#include "leveling/batch/batch.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "leveling/archive/record.h"
#include "leveling/storage/folders.h"
#include "leveling/worker/worker_process.h"

/*
 * One thread, that of run(), owns the workers and calls the observer; it sleeps in poll() on the
 * pipes of the workers and on one pipe of its own. Every other thread only changes what stands
 * under the mutex, or the stop flag, and writes a byte into that pipe. So nothing is locked while
 * an observer is called, a request that comes between two looks at the queue is never lost, and a
 * signal handler can request a stop with no more than an atomic store and a write.
 *
 * A file's worker is a process: a codec that crashes, a limit of the system, or a kill costs one
 * file. Its facts come through a pipe, its messages through another; it has ended when both are
 * closed, or its process is gone. The output gets its name here, not in the worker.
 */

namespace quorvane {

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
        queue_.push_back({index, input, output, existing, found, new_folder, {}});
    }
    wake();
    return index;
}

// The first entry holds the others, so that the group stays together in the queue.
std::size_t Batch::add_group(const std::vector<GroupFile>& files) {
    std::vector<Entry> entries;
    entries.reserve(files.size());
    for (const GroupFile& file : files) {
        entries.push_back({0,
                           file.input,
                           file.output,
                           file.existing,
                           file.found,
                           missing_folder(file.output),
                           {},
                           file.mix});
    }
    std::size_t first = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        first = added_;
        for (Entry& entry : entries) {
            entry.index = added_++;
        }
        Entry group = entries.front();
        group.others.assign(entries.begin() + 1, entries.end());
        queue_.push_back(std::move(group));
    }
    wake();
    return first;
}

// The entry itself is the first.
std::vector<const Batch::Entry*> Batch::group_of(const Entry& entry) {
    std::vector<const Entry*> group = {&entry};
    for (const Entry& other : entry.others) {
        group.push_back(&other);
    }
    return group;
}

// Only noted here: the thread of run() acts on it.
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

// Callable from a signal handler: an atomic store and a write.
void Batch::stop(Stop how) {
    // Only what a signal handler may do: no lock, no memory.
    stop_.store(how == Stop::Now ? 2 : 1);
    const int error = errno;
    wake();
    errno = error;
}

// A full pipe is enough to wake the reader, so a failure does not matter.
void Batch::wake() const {
    // A full pipe will wake run() anyway.
    (void)!write(wake_[1], "", 1);
}

void Batch::drain() const {
    char bytes[64];
    while (read(wake_[0], bytes, sizeof bytes) > 0) {
    }
}

// Each round takes requests, starts workers, waits for pipes and finishes ended files.
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

// Closed and empty, or stopped with no file running.
bool Batch::ended() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return running_.empty() && queue_.empty() && (closed_ || stop_.load() != 0);
}

namespace {

template <class Entries>
bool is_among(const Entries& entries, const std::set<std::size_t>& indices) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const auto* entry) { return indices.count(entry->index) != 0; });
}

}  // namespace

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
            return stop == 0 && !is_among(group_of(entry), cancelled);
        };
        const auto first = std::stable_partition(queue_.begin(), queue_.end(), keeps);
        never_begun.assign(first, queue_.end());
        queue_.erase(first, queue_.end());
    }
    for (Running& running : running_) {
        if (running.facts.valid()) {
            continue;  // it has ended; its output is getting its name
        }
        if (stop > stop_sent_ || is_among(group_of(running.entry), cancelled)) {
            // Once for each stage of a stop: a worker that cleans up is not disturbed again.
            running.cancelled = true;
            running.worker->send_signal(stop == 2 ? SIGKILL : SIGTERM);
        }
    }
    stop_sent_ = stop;
    for (const Entry& entry : never_begun) {
        FileFacts stopped;
        stopped.cause = "stopped";
        end_without_worker(entry, stopped);
    }
}

// Not while a stop is under way.
void Batch::start_more() {
    while (running_.size() < jobs_) {
        Entry entry;
        if (stop_.load() != 0 || !take_entry(entry)) {
            return;
        }
        start(std::move(entry));
    }
}

// The first in the queue whose time has come; false when there is none.
bool Batch::take_entry(Entry& entry) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto now = Clock::now();
    const auto found = std::find_if(queue_.begin(), queue_.end(), [&](const Entry& waiting) {
        return waiting.not_before <= now;
    });
    if (found == queue_.end()) {
        return false;
    }
    entry = std::move(*found);
    queue_.erase(found);
    return true;
}

}  // namespace quorvane
