#include "cli/worker/file_work.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "cli/audio/measure.h"
#include "cli/audio/sound_file.h"
#include "cli/engine/engine_run.h"
#include "cli/facts/file_error.h"
#include "cli/storage/staged_output.h"
#include "cli/worker/carrier.h"

/*
 * The work on one file is a list of stages, kStages, each a function that takes what the ones
 * before it left in Work. What depends on the kind of file is asked of its Carrier; a stage that
 * has nothing to do for a job is left out by its condition. A new stage is a function and a line in
 * the list.
 */

namespace cli {
namespace fs = std::filesystem;

namespace {

struct Work {
    const Job& job;
    FileFacts facts;
    std::unique_ptr<Carrier> carrier;
    std::string engine_input;
    std::string audio;    // the newest form of the leveled audio; at the end the complete file
    bool changed = true;  // false: the engine handed the input back
    std::function<void(double)> progress;  // of the stage, 0 to 1
};

void probe(Work& work) {
    work.carrier = make_carrier(work.job);
    work.carrier->probe(work.facts);
}

void measure_before(Work& work) {
    work.facts.before = measure(work.carrier->readable(work.job.input), work.progress);
}

void prepare(Work& work) {
    work.engine_input = work.carrier->engine_input();
}

void level(Work& work) {
    const EngineRun run{
        work.engine_input,
        work.job.scratch + "/leveled" + fs::path(work.engine_input).extension().string(),
        work.job.scratch, work.job.options.tuning, work.facts.frames};
    const EngineResult result = run_engine(run, work.progress);
    work.changed = result.leveled;
    work.facts.leveling = result.leveling;
    work.facts.cause = result.cause;
    work.facts.outcome = result.leveled ? Outcome::Leveled : Outcome::Copied;
    work.audio = result.leveled ? run.output : work.job.input;
    if (!result.leveled) {
        work.facts.after = work.facts.before;
    }
}

void check_length(Work& work) {
    const SndfileHandle before = open_to_read(work.engine_input);
    const SndfileHandle after = open_to_read(work.audio);
    const double rate = before.samplerate();
    if (after.frames() == before.frames()) {
        return;
    }
    throw FileError(fmt::format(
        "the engine left it {:.2f} s {} than the input ({:.2f} s of {:.2f} s), so nothing was "
        "written; {}",
        static_cast<double>(std::abs(before.frames() - after.frames())) / rate,
        after.frames() < before.frames() ? "shorter" : "longer",
        static_cast<double>(after.frames()) / rate, static_cast<double>(before.frames()) / rate,
        "a passage below the noise threshold has this effect (a lower "
        "--calc-rms-floor-noise_threshold may help), and a --bin-size other than 50"));
}

void encode(Work& work) {
    work.audio = work.carrier->encode(work.audio);
}

void measure_after(Work& work) {
    work.facts.after = measure(work.carrier->readable(work.audio), work.progress);
}

void add_metadata(Work& work) {
    work.audio =
        work.carrier->add_metadata(work.audio, work.facts.after ? &*work.facts.after : nullptr);
}

void check_result(Work& work) {
    work.carrier->check(work.audio, work.facts);
}

void place(Work& work) {
    const std::string& output = work.job.output;
    remove_stale_parts(output);
    StagedOutput staged(output);
    staged.take_protection_of(work.job.input);
    staged.fill_from(work.audio);
    if (work.job.options.keep_mtime) {
        staged.take_time_of(work.job.input);
    }
    try {
        staged.commit(work.job.options.replace);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::file_exists) {
            throw;
        }
        throw FileError("the output came to exist meanwhile and was kept");
    }
}

bool always(const Work& /*work*/) {
    return true;
}

bool measures(const Work& work) {
    return work.job.options.measure;
}

bool levels(const Work& work) {
    return !work.job.output.empty();
}

bool changed(const Work& work) {
    return levels(work) && work.changed;
}

bool changed_and_measures(const Work& work) {
    return changed(work) && measures(work);
}

struct Stage {
    void (*run)(Work&);
    bool (*wanted)(const Work&);
    double until;  // where on the file's progress bar it ends
};

constexpr Stage kStages[] = {
    {probe, always, 0.0},
    {measure_before, measures, 0.10},
    {prepare, levels, 0.10},
    {level, levels, 0.88},
    {check_length, changed, 0.88},
    {encode, changed, 0.88},
    {measure_after, changed_and_measures, 0.97},
    {add_metadata, changed, 0.97},
    {check_result, changed, 0.97},
    {place, levels, 1.0},
};

void run_stages(Work& work, const std::function<void(double)>& progress) {
    double from = 0;
    for (const Stage& stage : kStages) {
        if (!stage.wanted(work)) {
            continue;
        }
        work.progress = [&, from](double done) { progress(from + (stage.until - from) * done); };
        stage.run(work);
        progress(stage.until);
        from = stage.until;
    }
}

}  // namespace

FileFacts work_on(const Job& job, const std::function<void(double)>& progress) {
    const auto start = std::chrono::steady_clock::now();
    Work work{job, {}, nullptr, "", "", true, nullptr};
    work.facts.input = job.input;
    work.facts.output = job.output;
    try {
        work.facts.outcome = Outcome::Analyzed;
        run_stages(work, progress);
    } catch (const std::exception& error) {
        work.facts.outcome = Outcome::Failed;
        work.facts.cause = error.what();
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    work.facts.elapsed_s = elapsed.count();
    return work.facts;
}

}  // namespace cli
