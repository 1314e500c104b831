#include "leveling/batch/batch.h"

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

#include "leveling/archive/record.h"
#include "leveling/facts/file_error.h"
#include "leveling/storage/folders.h"
#include "leveling/worker/delivery.h"
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
namespace fs = std::filesystem;

namespace {

constexpr int kPollMilliseconds = 200;  // between two ticks
constexpr std::chrono::milliseconds kRetryClaim{kPollMilliseconds};

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
        queue_.push_back({index, input, output, existing, found, new_folder, {}});
    }
    wake();
    return index;
}

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
        end_without_worker(entry, Outcome::Interrupted, "stopped");
    }
}

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

Job Batch::job_of(const Entry& entry, const std::vector<const Entry*>& group) const {
    Job job;
    job.input = fs::absolute(entry.input).string();
    if (!entry.output.empty()) {
        job.output = fs::absolute(entry.output).string();
    }
    job.scratch = fmt::format("{}{}", scratch_.path(), group.front()->index);
    job.mix = entry.mix;
    job.options = options_;
    job.options.replace = entry.existing == Existing::Replace;
    job.options.redo_changed = options_.redo_changed || entry.existing == Existing::Renew;
    if (group.size() > 1) {
        std::vector<std::string> inputs;
        for (const Entry* member : group) {
            if (!member->mix) {
                inputs.push_back(member->input);
            }
        }
        job.options.group = group_key(inputs);
        job.options.destination = entry.mix ? options_.destination : "";
    }
    return job;
}

void Batch::start(Entry entry) {
    const std::vector<const Entry*> group = group_of(entry);
    std::vector<Job> jobs;
    std::vector<std::unique_ptr<Delivery>> deliveries;
    std::vector<FileState> inputs;
    try {
        for (const Entry* member : group) {
            Job job = job_of(*member, group);
            auto delivery = std::make_unique<Delivery>(
                job, OutputPlace{job.output, member->found, member->new_folder});
            const Delivery::Begun begun = delivery->begin();
            if (begun == Delivery::Begun::Taken) {
                deliveries.clear();
                entry.not_before = Clock::now() + kRetryClaim;
                const std::lock_guard<std::mutex> lock(mutex_);
                return queue_.push_back(std::move(entry));
            }
            if (begun == Delivery::Begun::Done && group.size() > 1) {
                throw FileError(
                    "another process made an output of its conversation meanwhile; give the same "
                    "command again");
            }
            if (begun == Delivery::Begun::Done) {
                return tell_finished(entry, delivery->facts());
            }
            job.part = delivery->part();
            jobs.push_back(std::move(job));
            deliveries.push_back(std::move(delivery));
            inputs.push_back(state_of(member->input));
        }
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            // Fewer files than processors: this worker may use a second one.
            jobs.front().spare_processor = running_.size() + 1 + queue_.size() < jobs_;
        }
        fs::create_directory(jobs.front().scratch);
        running_.push_back({entry, std::move(inputs), Clock::now(),
                            std::make_unique<WorkerProcess>(std::move(jobs), std::move(deliveries)),
                            -1, false});
    } catch (const std::exception& error) {
        return end_without_worker(entry, Outcome::Failed, cause_of(error));
    }
    for (const Entry* member : group_of(running_.back().entry)) {
        observer_.started(member->index);
    }
}

void Batch::wait() {
    // The own pipe first, then two for each worker, in the order of running_.
    std::vector<pollfd> watched = {{wake_[0], POLLIN, 0}};
    for (const Running& running : running_) {
        const bool ended = running.facts.valid();
        watched.push_back({ended ? -1 : running.worker->events(), POLLIN, 0});
        watched.push_back({ended ? -1 : running.worker->output(), POLLIN, 0});
    }
    if (ended()) {
        return;
    }
    // Without a worker, and without an output that another process holds, nothing changes by
    // itself: sleep until there is a request.
    bool waits = false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        waits = running_.empty() && queue_.empty();
    }
    if (poll(watched.data(), watched.size(), waits ? -1 : kPollMilliseconds) <= 0) {
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
        if (running.facts.valid()) {
            continue;
        }
        const double fraction = running.worker->progress();
        if (fraction > running.told_fraction) {
            running.told_fraction = fraction;
            for (const Entry* member : group_of(running.entry)) {
                observer_.progress(member->index, fraction);
            }
        }
    }
}

void Batch::collect() {
    for (std::size_t i = 0; i < running_.size();) {
        Running& running = running_[i];
        if (!running.facts.valid() && running.worker->at_end()) {
            begin_to_finish(running);
        }
        // Deferred counts as ready, too.
        if (!running.facts.valid() ||
            running.facts.wait_for(std::chrono::seconds(0)) == std::future_status::timeout) {
            ++i;
            continue;
        }
        Running ended = std::move(running);
        running_.erase(running_.begin() + static_cast<std::ptrdiff_t>(i));
        finish(ended);
    }
}

// An output is synced before it gets its name, which takes the disk some time: other workers are
// not to wait for it.
void Batch::begin_to_finish(Running& running) {
    const auto work = [this, worker = running.worker.get()] {
        std::vector<FileFacts> facts = worker->finish();
        wake();
        return facts;
    };
    try {
        running.facts = std::async(std::launch::async, work);
    } catch (const std::system_error&) {  // no thread to be had
        running.facts = std::async(std::launch::deferred, work);
    }
}

void Batch::finish(Running& ended) {
    std::vector<FileFacts> facts = ended.facts.get();
    const std::vector<const Entry*> group = group_of(ended.entry);
    if (!ended.worker->messages().empty()) {
        observer_.messages(ended.entry.index, ended.worker->messages());
    }
    for (std::size_t i = 0; i < group.size(); ++i) {
        judge_end(ended, i, facts[i]);
        tell_finished(*group[i], std::move(facts[i]));
    }
}

// What the end of the file at a place in its group means.
void Batch::judge_end(const Running& ended, std::size_t place, FileFacts& facts) const {
    if (facts.elapsed_s == 0) {
        facts.elapsed_s = std::chrono::duration<double>(Clock::now() - ended.started).count();
    }
    // A worker that was stopped fails in whatever it was doing: the file is not at fault.
    if (ended.cancelled && facts.outcome == Outcome::Failed) {
        facts.outcome = Outcome::Interrupted;
        facts.cause = "stopped";
    }
    // An input that is still being written may cause an error, and its measurement covers only
    // a part of it. The worker of an output checks this before it publishes it.
    const FileState& before = ended.inputs[place];
    const Entry* entry = group_of(ended.entry)[place];
    if ((facts.outcome == Outcome::Failed || facts.outcome == Outcome::Analyzed) &&
        before.exists() && state_of(entry->input) != before) {
        facts.outcome = Outcome::Failed;
        facts.cause = kChangedWhileRead;
    }
}

// Under the names that the file was added with.
void Batch::tell_finished(const Entry& entry, FileFacts facts) {
    facts.input = entry.input;
    facts.output = entry.output;
    observer_.finished(entry.index, facts);
}

void Batch::end_without_worker(const Entry& entry, Outcome outcome, const std::string& cause) {
    for (const Entry* member : group_of(entry)) {
        FileFacts facts;
        facts.input = member->input;
        facts.output = member->output;
        facts.outcome = outcome;
        facts.cause = cause;
        observer_.finished(member->index, facts);
    }
}

}  // namespace quorvane
