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
#include "leveling/conversation/conversation.h"
#include "leveling/conversation/mix.h"
#include "leveling/facts/destinations.h"
#include "leveling/facts/file_error.h"
#include "leveling/findings/findings.h"
#include "leveling/publish/publish.h"
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

/** What went wrong with one file of a group. */
class TrackError : public std::runtime_error {
  public:
    TrackError(const std::string& input, const std::exception& error)
        : std::runtime_error(cause_of(error)), input_(input) {}

    const std::string& input() const { return input_; }

  private:
    std::string input_;
};

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
    void make_mix();
    std::string publish_mix(const std::string& sum);

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
            note_voice(work, conversation_->render(i, to, [&](double done) {
                progress(kAnalysed + (1 - kAnalysed) * (so_far + done) / count);
            }));
        } catch (const std::exception& error) {
            throw TrackError(work.job.input, error);
        }
        work.leveled = {to};
        work.facts.outcome = Outcome::Leveled;
    }
}

/** The facts of one track, with a note on its owner. */
void GroupRun::note_voice(Work& work, const TrackResult& result) const {
    work.facts.leveling = result.leveling;
    work.facts.preparation = result.preparation;
    work.facts.conversation =
        ConversationPart{static_cast<int>(tracks_.size()), false, result.speaks_s};
    work.facts.notes.push_back(
        result.speaks_s > 0
            ? fmt::format("one of {} tracks of a conversation; its owner speaks for {}",
                          tracks_.size(), minutes_text(result.speaks_s))
            : fmt::format("one of {} tracks of a conversation; its owner does not speak, so it is "
                          "not raised",
                          tracks_.size()));
}

/** Brings the sum of the tracks to its destination; the path of the result, in floats. */
std::string GroupRun::publish_mix(const std::string& sum) {
    const std::string to = mix_->job.scratch + "/published.wav";
    const auto as_it_is = [](const std::string& audio) { return Reading{audio, ""}; };
    // Nothing is encoded in between, so publish() reads each result as it is.
    const Published published =
        publish(*find_destination(mix_->job.options.destination), sum, to, as_it_is, [](double) {});
    mix_->facts.publishing = published.facts;
    return published.path;
}

/** Sum, limiter, output format, measurement, then the bytes beside the output. Throws. */
void GroupRun::make_mix() {
    Work& work = *mix_;
    const std::string extension = lower_extension(work.job.output);
    // libsndfile's number of the first track's format; 0: not known.
    int like = 0;
    try {
        like = open_to_read(tracks_.front().job.input).format();
    } catch (const std::exception&) {
        like = 0;  // not one of libsndfile's: the extension alone decides
    }
    const int format = mix_format(extension, like);
    const std::string sum = work.job.scratch + "/sum.wav";
    // Summing is half of what is left on the bar.
    const double from = tracks_until_;
    conversation_->render_mix(sum, [&](double done) { progress_(from + (1 - from) / 2 * done); });
    // A destination has a limiter of its own; without one the mix is limited as it is written.
    const bool has_destination = !work.job.options.destination.empty();
    const std::string rendered = has_destination ? publish_mix(sum) : sum;
    work.audio = work.job.scratch + "/mix." + extension;
    write_mix(rendered, work.audio, format, has_destination ? Limiting::None : Limiting::Apply);
    const SndfileHandle made = open_to_read(work.audio);
    work.facts.sample_rate_hz = made.samplerate();
    work.facts.channels = made.channels();
    work.facts.frames = made.frames();
    work.facts.outcome = Outcome::Leveled;
    work.facts.conversation = ConversationPart{static_cast<int>(tracks_.size()), true, 0};
    work.facts.notes.push_back(fmt::format("the mix of {} tracks", tracks_.size()));
    if (work.job.options.measure) {
        work.facts.after = measure(work.audio, [](double) {}).loudness;
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
