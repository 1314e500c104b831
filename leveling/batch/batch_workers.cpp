#include <fmt/format.h>
#include <poll.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include "leveling/archive/record.h"
#include "leveling/batch/batch.h"
#include "leveling/facts/file_error.h"
#include "leveling/worker/delivery.h"
#include "leveling/worker/worker_process.h"

/* A file's way through a batch from the start of its worker to the end. */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

constexpr int kPollMilliseconds = 200;  // between two ticks
// An output that another process works on is tried again with each tick.
constexpr std::chrono::milliseconds kRetryClaim{kPollMilliseconds};

}  // namespace

// Absolute paths: a worker need not share the current folder.
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
        job.options.group = group_key(inputs, options_.align);
        job.options.destination = entry.mix ? options_.destination : "";
    }
    return job;
}

// Claims the outputs of all files of the group first: one that is taken puts the whole group back
// into the queue, and an error fails it without a worker.
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
        FileFacts failed;
        set_failed(failed, error);
        return end_without_worker(entry, failed);
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

// A worker ends first, then its outputs are delivered on another thread, then its files finish.
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

// The engine's messages come before the outcome of the file that they explain.
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

// A file that was stopped in the queue, or whose worker could not be started.
void Batch::end_without_worker(const Entry& entry, FileFacts facts) {
    for (const Entry* member : group_of(entry)) {
        facts.input = member->input;
        facts.output = member->output;
        observer_.finished(member->index, facts);
    }
}

}  // namespace quorvane
