#include "leveling/worker/worker_process.h"

#include <fmt/format.h>
#include <sys/wait.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "leveling/facts/file_error.h"
#include "leveling/storage/scratch.h"

namespace quorvane {
namespace {

/** A job with an output ends in one of two ways, one without in a measurement; both may fail. */
bool fits_job(Outcome outcome, const Job& job) {
    return outcome == Outcome::Failed ||
           (job.output.empty() ? outcome == Outcome::Analyzed
                               : outcome == Outcome::Leveled || outcome == Outcome::Copied);
}

}  // namespace

WorkerProcess::WorkerProcess(std::vector<Job> jobs,
                             std::vector<std::unique_ptr<Delivery>> deliveries)
    : jobs_(std::move(jobs)), deliveries_(std::move(deliveries)), process_(jobs_) {}

void WorkerProcess::read_events() {
    process_.read_events([this](const nlohmann::ordered_json& event) {
        if (event.contains("progress")) {
            progress_ = std::clamp(event["progress"].get<double>(), 0.0, 1.0);
        }
        if (event.contains("facts") && results_.size() < jobs_.size()) {
            results_.push_back(work_result_from_json(event));
        }
    });
}

/** Why the answer cannot be believed; empty when it can. */
std::string WorkerProcess::contradiction(const WorkResult& result, const Job& job) {
    const Outcome outcome = result.facts.outcome;
    if (!fits_job(outcome, job)) {
        return fmt::format("its worker process answered \"{}\", which does not fit its job",
                           to_text(outcome));
    }
    const int status = process_.wait();
    if (outcome == Outcome::Failed || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) {
        return "";
    }
    return fmt::format("its worker process reported \"{}\", but {} {}", to_text(outcome),
                       WIFSIGNALED(status) ? "was ended by signal" : "ended with status",
                       WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
}

/** Why the file at a place in the jobs cannot be delivered; empty when it can. */
std::string WorkerProcess::problem_of(std::size_t place) {
    if (results_.size() < jobs_.size()) {
        return process_.cause_of_end();
    }
    const WorkResult& result = results_[place];
    const std::string cause = contradiction(result, jobs_[place]);
    return cause.empty() && result.facts.outcome == Outcome::Failed ? result.facts.cause : cause;
}

/** Where one file of a group fails, all do. */
void WorkerProcess::fail_group(std::vector<FileFacts>& all) const {
    const auto failed = std::find_if(all.begin(), all.end(), [](const FileFacts& facts) {
        return facts.outcome == Outcome::Failed;
    });
    if (failed == all.end()) {
        return;
    }
    const std::string cause = fmt::format("its conversation was not leveled, as {} failed: {}",
                                          failed->input, failed->cause);
    for (FileFacts& facts : all) {
        if (facts.outcome != Outcome::Failed) {
            facts.outcome = Outcome::Failed;
            facts.cause = cause;
        }
    }
}

/** The other tracks of the conversation of the file at a place in the jobs. */
std::vector<InputRecord> WorkerProcess::others_of(std::size_t place) const {
    std::vector<InputRecord> others;
    for (std::size_t i = 0; i < jobs_.size(); ++i) {
        if (!jobs_[i].mix && jobs_[i].input != jobs_[place].input) {
            others.push_back(deliveries_[i]->input_record(results_[i].input_hash));
        }
    }
    return others;
}

/** No output of a group is delivered where one of its inputs changed meanwhile. */
void WorkerProcess::require_unchanged(std::vector<FileFacts>& all) const {
    for (std::size_t i = 0; i < jobs_.size() && jobs_.size() > 1; ++i) {
        try {
            if (all[i].outcome != Outcome::Failed) {
                deliveries_[i]->require_unchanged();
            }
        } catch (const std::exception& error) {
            set_failed(all[i], error);
        }
    }
    fail_group(all);
}

std::vector<FileFacts> WorkerProcess::finish() {
    // A process that ended may have left something in its pipes.
    read_events();
    read_output();
    process_.wait();
    remove_tree(jobs_.front().scratch);

    std::vector<FileFacts> all;
    for (std::size_t i = 0; i < jobs_.size(); ++i) {
        FileFacts facts = i < results_.size() ? results_[i].facts : FileFacts{};
        facts.input = jobs_[i].input;
        facts.output = jobs_[i].output;
        if (const std::string problem = problem_of(i); !problem.empty()) {
            facts.outcome = Outcome::Failed;
            facts.cause = problem;
        }
        all.push_back(facts);
    }
    require_unchanged(all);
    for (std::size_t i = 0; i < jobs_.size(); ++i) {
        if (all[i].outcome == Outcome::Failed || jobs_[i].output.empty()) {
            continue;
        }
        try {
            results_[i].facts = all[i];
            deliveries_[i]->deliver(results_[i], others_of(i));
        } catch (const std::exception& error) {
            set_failed(all[i], error);
            fail_group(all);  // those that come after it are not delivered
        }
    }
    deliveries_.clear();  // a part that was not delivered goes, and with it a folder made for it
    return all;
}

}  // namespace quorvane
