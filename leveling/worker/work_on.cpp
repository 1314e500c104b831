#include "leveling/worker/work_on.h"

#include <chrono>
#include <exception>

#include "Common/units.h"
#include "leveling/archive/record.h"
#include "leveling/findings/findings.h"
#include "leveling/worker/stages.h"

namespace quorvane {
namespace {

void run_stages(Work& work, const std::function<void(double)>& progress) {
    double from = 0;
    for (const Stage& stage : stages()) {
        if (!stage.wanted(work)) {
            continue;
        }
        const bool whole = work.backend && work.backend->decodes();
        const double until = whole ? stage.until_decoded : stage.until;
        work.progress = [&, from](double done) { progress(from + (until - from) * done); };
        stage.run(work);
        progress(until);
        from = until;
    }
}

}  // namespace

WorkResult work_on_here(const Job& job, const std::function<void(double)>& progress) {
    Work work{job};
    work.facts.input = job.input;
    work.facts.output = job.output;
    run_stages(work, progress);
    add_results(state_of(job.input).size, work.facts);
    return {work.facts, work.input_hash, work.output_hash,
            job.output.empty() ? 0 : state_of(job.part).size};
}

WorkResult work_on(const Job& job, const std::function<void(double)>& progress) {
    const auto start = std::chrono::steady_clock::now();
    Work work{job};
    work.facts.input = job.input;
    work.facts.output = job.output;
    std::int64_t bytes = 0;
    try {
        run_stages(work, progress);
        if (work.facts.channels <= kMostChannels) {
            add_results(state_of(job.input).size, work.facts);
        }
        bytes = job.output.empty() ? 0 : state_of(job.part).size;
    } catch (const std::exception& error) {
        set_failed(work.facts, error);
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    work.facts.elapsed_s = elapsed.count();
    return {work.facts, work.input_hash, work.output_hash, bytes};
}

}  // namespace quorvane
