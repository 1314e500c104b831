#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <filesystem>
#include <memory>
#include <utility>

#include "leveling/archive/content_hash.h"
#include "leveling/archive/record.h"
#include "leveling/audio/audio_formats.h"
#include "leveling/audio/sound_file.h"
#include "leveling/conversation/clocks.h"
#include "leveling/conversation/conversation.h"
#include "leveling/conversation/mix.h"
#include "leveling/facts/file_error.h"
#include "leveling/findings/findings.h"
#include "leveling/worker/mix_work.h"
#include "leveling/worker/stages.h"
#include "leveling/worker/work_on.h"

/*
 * The tracks of a conversation go through the stages of a single file side by side; where a single
 * file would be leveled, all of them are leveled together. The mix is made when they are done.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/** "12:05". */
std::string minutes_text(double seconds) {
    const auto whole = std::llround(seconds);
    return fmt::format("{}:{:02}", whole / 60, whole % 60);
}

/** The work on one conversation, from its jobs to their results. */
class GroupRun {
  public:
    GroupRun(const std::vector<Job>& jobs, const std::function<void(double)>& progress);

    /** Throws TrackError. */
    void go();

    /** The tracks in the order of the jobs, the mix behind them. */
    std::vector<WorkResult> results() const;
    /** All files as failed: one by its own cause, the others because of it. */
    std::vector<WorkResult> failed(const std::string& input, const std::string& cause) const;

  private:
    // from: where on the progress bar the stage begins, 0 to 1.
    void run_stage(const Stage& stage, double from);
    void level(const std::function<void(double)>& progress);
    void note_voice(Work& work, const TrackResult& result) const;
    void note_clock(Work& work) const;
    void require_possible() const;
    MixFormat mix_format_of_tracks() const;
    ConversationPart conversation_part() const;
    void make_mix();

    std::vector<Job> jobs_;
    const std::function<void(double)>& progress_;
    std::vector<Work> tracks_;
    std::unique_ptr<Work> mix_;
    std::unique_ptr<Conversation> conversation_;
    double tracks_until_ = 1;  // on the progress bar
};

/** Each gets a folder of its own in the group's scratch directory. */
GroupRun::GroupRun(const std::vector<Job>& jobs, const std::function<void(double)>& progress)
    : jobs_(jobs), progress_(progress) {
    for (std::size_t i = 0; i < jobs_.size(); ++i) {
        jobs_[i].scratch += fmt::format("/{}", i + 1);
        jobs_[i].spare_processor = false;
    }
    for (const Job& job : jobs_) {
        Work work{job};
        work.facts.input = job.input;
        work.facts.output = job.output;
        if (job.mix) {
            mix_ = std::make_unique<Work>(std::move(work));
        } else {
            tracks_.push_back(std::move(work));
        }
    }
    // The mix takes the last 15 % of the progress bar.
    tracks_until_ = mix_ ? 0.85 : 1;
}

void GroupRun::go() {
    for (const Job& job : jobs_) {
        fs::create_directory(job.scratch);
    }
    double from = 0;
    for (const Stage& stage : stages()) {
        run_stage(stage, from);
        from = stage.until_decoded;
    }
    if (mix_) {
        try {
            make_mix();
        } catch (const std::exception& error) {
            // A mix has no input of its own, so its output names it.
            throw TrackError(mix_->job.output, error);
        }
    }
}

void GroupRun::run_stage(const Stage& stage, double from) {
    const auto count = static_cast<double>(tracks_.size());
    // The shares of a decoded file stand for all, so that the bar moves evenly.
    const double span = stage.until_decoded - from;
    // The only stage in which the tracks depend on each other.
    if (stage.of == StageOf::kLevel) {
        return level([&](double done) { progress_((from + span * done) * tracks_until_); });
    }
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        Work& work = tracks_[i];
        work.progress = [&, i](double done) {
            progress_((from + span * (static_cast<double>(i) + done) / count) * tracks_until_);
        };
        try {
            if (stage.wanted(work)) {
                stage.run(work);
            }
        } catch (const std::exception& error) {
            throw TrackError(work.job.input, error);
        }
    }
}

/** Takes all tracks through the leveling. */
void GroupRun::level(const std::function<void(double)>& progress) {
    // Reading is half of the stage, rendering the other half.
    constexpr double kAnalysed = 0.5;
    require_possible();
    const Aligning aligning = tracks_.front().job.options.align ? Aligning::Align : Aligning::Keep;
    std::vector<std::string> recordings;
    for (const Work& work : tracks_) {
        // A media file with several audio streams.
        if (work.engine_inputs.size() != 1) {
            throw TrackError(work.job.input,
                             FileError("it has several sounds; a track of a conversation has one"));
        }
        recordings.push_back(work.engine_inputs.front());
    }
    conversation_ = std::make_unique<Conversation>(recordings);
    try {
        conversation_->analyse([&](double done) { progress(kAnalysed * done); });
    } catch (const std::exception& error) {
        // The error names no file; the first track stands for the group.
        throw TrackError(tracks_.front().job.input, error);
    }
    const auto count = static_cast<double>(tracks_.size());
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        Work& work = tracks_[i];
        const std::string to =
            work.job.scratch + "/leveled" + fs::path(recordings[i]).extension().string();
        const auto so_far = static_cast<double>(i);
        try {
            note_voice(work, conversation_->render(i, to, aligning, [&](double done) {
                progress(kAnalysed + (1 - kAnalysed) * (so_far + done) / count);
            }));
            note_clock(work);
        } catch (const std::exception& error) {
            throw TrackError(work.job.input, error);
        }
        work.leveled = {to};
        work.facts.outcome = Outcome::Leveled;
    }
}

/** What is known before the tracks are read. */
void GroupRun::require_possible() const {
    for (const Work& work : tracks_) {
        if (work.job.options.align && work.backend->decodes()) {
            throw TrackError(work.job.input,
                             FileError("--align changes the length, which cannot be written back "
                                       "to this file; align WAV or FLAC files made from it"));
        }
    }
    if (mix_) {
        try {
            require_mix_rate(mix_format_of_tracks(), tracks_.front().facts.sample_rate_hz);
        } catch (const FileError& error) {
            throw TrackError(mix_->job.output, error);
        }
    }
}

/** Of a track whose recorder may not run with the first one's. */
void GroupRun::note_clock(Work& work) const {
    const std::optional<TrackClock>& clock = work.facts.conversation->clock;
    if (!clock) {
        return;
    }
    if (clock->certainty == 0) {
        work.facts.notes.push_back(fmt::format(
            "nothing that it shares with {} was found, so that its place in time was left as it is",
            fs::path(tracks_.front().job.input).filename().string()));
    } else if (differs(*clock, work.facts.duration_s())) {
        work.facts.notes.push_back(fmt::format(
            "its recorder began {:.3f} s {} that of {} and runs {:.1f} ppm {} (certainty {:.0f} "
            "%); "
            "{}",
            std::fabs(clock->offset_s), clock->offset_s > 0 ? "before" : "after",
            fs::path(tracks_.front().job.input).filename().string(), std::fabs(clock->drift_ppm),
            clock->drift_ppm < 0 ? "slower" : "faster", 100 * clock->certainty,
            work.job.options.align ? "corrected here and in a mix"
                                   : "a mix corrects it, --align this file too"));
    }
}

/** The facts of one track, with a note on its owner. */
void GroupRun::note_voice(Work& work, const TrackResult& result) const {
    work.facts.leveling = result.leveling;
    work.facts.preparation = result.preparation;
    ConversationPart part = conversation_part();
    part.speaks_s = result.speaks_s;
    part.turns = result.turns;
    part.clock = result.clock;
    work.facts.conversation = part;
    work.facts.notes.push_back(
        result.speaks_s > 0
            ? fmt::format("one of {} tracks of a conversation; its owner speaks for {}",
                          tracks_.size(), minutes_text(result.speaks_s))
            : fmt::format("one of {} tracks of a conversation; its owner does not speak, so it is "
                          "not raised",
                          tracks_.size()));
}

/** The mix is coded as the first track where it may be. */
MixFormat GroupRun::mix_format_of_tracks() const {
    // libsndfile's number of the first track's format; 0: not known.
    int like = 0;
    try {
        like = open_to_read(tracks_.front().job.input).format();
    } catch (const std::exception&) {
        like = 0;  // not one of libsndfile's: the extension alone decides
    }
    return mix_format(lower_extension(mix_->job.output), like);
}

ConversationPart GroupRun::conversation_part() const {
    ConversationPart part;
    part.tracks = static_cast<int>(tracks_.size());
    return part;
}

/** Sum, limiter, output format, measurement, then the bytes beside the output. Throws. */
void GroupRun::make_mix() {
    Work& work = *mix_;
    const std::string sum = work.job.scratch + "/sum.wav";
    // Summing is half of what is left on the bar.
    const double from = tracks_until_;
    conversation_->render_mix(sum, [&](double done) { progress_(from + (1 - from) / 2 * done); });
    const MadeMix made =
        quorvane::make_mix({sum, mix_format_of_tracks(), lower_extension(work.job.output),
                            work.job.options.destination, work.job.scratch});
    work.audio = made.path;
    work.facts.publishing = made.publishing;
    const SndfileHandle audio = open_to_read(made.readable);
    work.facts.sample_rate_hz = audio.samplerate();
    work.facts.channels = audio.channels();
    work.facts.frames = audio.frames();
    work.facts.outcome = Outcome::Leveled;
    work.facts.conversation = conversation_part();
    work.facts.conversation->mix = true;
    work.facts.notes.push_back(fmt::format("the mix of {} tracks", tracks_.size()));
    if (work.job.options.measure) {
        work.facts.after = measure(made.readable, [](double) {}).loudness;
    }
    work.part = std::make_unique<OutputPart>(work.job.output, work.job.part);
    work.part->clear();
    work.part->fill_from(work.audio);
    work.part->sync();
    // The record of outputs holds both hashes.
    work.output_hash = content_hash(work.part->path());
    work.input_hash = content_hash(work.job.input);
    progress_(1);
}

std::vector<WorkResult> GroupRun::results() const {
    std::vector<WorkResult> results;
    const auto add = [&](const Work& work) {
        FileFacts facts = work.facts;
        add_results(state_of(work.job.input).size, facts);
        results.push_back({facts, work.input_hash, work.output_hash, state_of(work.job.part).size});
    };
    for (const Work& work : tracks_) {
        add(work);
    }
    if (mix_) {
        add(*mix_);
    }
    return results;
}

std::vector<WorkResult> GroupRun::failed(const std::string& input, const std::string& cause) const {
    std::vector<WorkResult> all = results();
    for (WorkResult& result : all) {
        result.facts.outcome = Outcome::Failed;
        // The mix shares its input with the first track, so its output identifies it.
        const bool is_mix = mix_ && result.facts.output == mix_->job.output;
        const bool is_own = is_mix ? result.facts.output == input : result.facts.input == input;
        result.facts.cause =
            is_own
                ? cause
                : fmt::format("nothing was written, as a file of its conversation failed: {}: {}",
                              fs::path(input).filename().string(), cause);
    }
    return all;
}

}  // namespace

std::vector<WorkResult> work_on_group_here(const std::vector<Job>& jobs,
                                           const std::function<void(double)>& progress) {
    GroupRun run(jobs, progress);
    run.go();
    return run.results();
}

std::vector<WorkResult> work_on_group(const std::vector<Job>& jobs,
                                      const std::function<void(double)>& progress) {
    const auto start = std::chrono::steady_clock::now();
    GroupRun run(jobs, progress);
    std::vector<WorkResult> results;
    try {
        run.go();
        results = run.results();
    } catch (const TrackError& error) {
        results = run.failed(error.input(), error.what());
    } catch (const std::exception& error) {
        // Not the fault of one file: the first one is named.
        results = run.failed(jobs.front().input, cause_of(error));
    }
    // Each file gets the time of the whole group.
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    for (WorkResult& result : results) {
        result.facts.elapsed_s = elapsed.count();
    }
    return results;
}

}  // namespace quorvane
