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

WorkerProcess::WorkerProcess(const Job& job, std::unique_ptr<Delivery> delivery)
    : job_(job), delivery_(std::move(delivery)), process_({job}) {}

void WorkerProcess::read_events() {
    process_.read_events([this](const nlohmann::ordered_json& event) {
        if (event.contains("progress")) {
            progress_ = std::clamp(event["progress"].get<double>(), 0.0, 1.0);
        }
        if (event.contains("facts")) {
            result_ = work_result_from_json(event);
        }
    });
}

/** Why the answer cannot be believed; empty when it can. */
std::string WorkerProcess::contradiction(const WorkResult& result) {
    const Outcome outcome = result.facts.outcome;
    if (!fits_job(outcome, job_)) {
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

FileFacts WorkerProcess::finish() {
    // A process that ended may have left something in its pipes.
    read_events();
    read_output();
    process_.wait();
    remove_tree(job_.scratch);

    FileFacts facts = result_ ? result_->facts : FileFacts{};
    const auto fail = [&](const std::string& cause) {
        facts.outcome = Outcome::Failed;
        facts.cause = cause;
    };
    facts.input = job_.input;
    facts.output = job_.output;
    if (!result_) {
        fail(process_.cause_of_end());
    } else if (const std::string cause = contradiction(*result_); !cause.empty()) {
        fail(cause);
    } else if (facts.outcome != Outcome::Failed && !job_.output.empty()) {
        try {
            result_->facts = facts;
            delivery_->deliver(*result_);
        } catch (const std::exception& error) {
            fail(cause_of(error));
        }
    }
    delivery_.reset();  // a part that was not delivered goes, and with it a folder made for it
    return facts;
}

}  // namespace quorvane
