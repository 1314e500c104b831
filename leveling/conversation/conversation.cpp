#include "leveling/conversation/conversation.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Common/stream/pump.h"
#include "leveling/conversation/aligned_reader.h"
#include "leveling/conversation/clocks.h"
#include "leveling/conversation/mix.h"
#include "leveling/conversation/plan.h"
#include "leveling/preparation/bin_levels.h"
#include "leveling/preparation/evenness.h"
#include "leveling/preparation/rendering.h"
#include "leveling/preparation/rumble.h"
#include "leveling/preparation/sound_files.h"

namespace quorvane {
namespace {

constexpr double kRounding = 1e-6;  // frames

}  // namespace

/** A track: how it was recorded, its levels, and what is to be done to it. */
struct Conversation::Track {
    std::string recording;
    int channels = 0;
    int sample_rate_hz = 0;
    // libsndfile's number; levels and gains below are in bins of so many frames.
    int format = 0;
    long long frames = 0;
    long long bin_frames = 0;
    BinLevels levels;
    std::vector<Section> high_pass;
    bool has_rumble = false;
    TrackPlan plan;
    std::optional<TrackClock> clock = {};
    TrackTime time = {};

    double bin_s() const { return static_cast<double>(bin_frames) / sample_rate_hz; }

    double seconds() const { return static_cast<double>(frames) / sample_rate_hz; }

    std::vector<FindingPlace> turns() const;

    /** Measures the track; where it rumbles, a second time behind a steeper filter. */
    void read(const std::function<void(double)>& progress);
    /** Reads the whole track through high_pass. */
    LevelAnalyser measured() const;
};

std::vector<FindingPlace> Conversation::Track::turns() const {
    std::vector<FindingPlace> turns;
    const std::vector<bool>& own = plan.speech.own;
    for (std::size_t i = 0; i < own.size() && !plan.is_silent(); ++i) {
        const double from_s = static_cast<double>(i) * bin_s();
        if (own[i] && (i == 0 || !own[i - 1])) {
            turns.push_back({from_s, from_s});
        }
        if (own[i]) {
            turns.back().to_s = from_s + bin_s();
        }
    }
    return turns;
}

LevelAnalyser Conversation::Track::measured() const {
    InputFile file(recording);
    LevelAnalyser analyser(channels, sample_rate_hz, high_pass);
    stream::pump(file.source(), analyser, stream::kToTheEnd);
    return analyser;
}

void Conversation::Track::read(const std::function<void(double)>& progress) {
    const SF_INFO info = InputFile(recording).info();
    channels = info.channels;
    sample_rate_hz = info.samplerate;
    format = info.format;
    frames = info.frames;
    high_pass = {gentle_high_pass(sample_rate_hz)};
    LevelAnalyser analyser = measured();
    bin_frames = analyser.bin_frames();
    levels = std::move(analyser.levels());
    // Empty without rumble under the speech.
    const std::vector<Section> steep =
        rumble_filter(levels, find_speech(levels.speech_db), sample_rate_hz);
    has_rumble = !steep.empty();
    if (has_rumble) {
        high_pass.insert(high_pass.begin(), steep.begin(), steep.end());
        replace_rumbling_levels(levels, std::move(measured().levels()));
    }
    progress(1);
}

Conversation::Conversation(std::vector<std::string> recordings) {
    for (std::string& recording : recordings) {
        tracks_.push_back(std::make_unique<Track>());
        tracks_.back()->recording = std::move(recording);
    }
}

Conversation::~Conversation() = default;

std::size_t Conversation::tracks() const {
    return tracks_.size();
}

void Conversation::analyse(const Progress& progress) {
    const auto count = static_cast<double>(tracks_.size());
    double done = 0;
    for (const auto& track : tracks_) {
        track->read([&](double part) { progress((done + part) / count); });
        done += 1;
    }
    find_times();
    // A plan needs the levels of all tracks.
    std::vector<MeasuredTrack> measured;
    for (const auto& track : tracks_) {
        measured.push_back({&track->levels, track->bin_s(), track->time});
    }
    std::vector<TrackPlan> plans = plan_tracks(measured);
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        tracks_[i]->plan = std::move(plans[i]);
    }
}

// The common clock begins with the track that begins first.
void Conversation::find_times() {
    ClockFinder clocks(tracks_.front()->recording);
    double earliest_s = 0;
    for (std::size_t i = 1; i < tracks_.size(); ++i) {
        Track& track = *tracks_[i];
        track.clock = clocks.find(track.recording);
        if (differs(*track.clock, track.seconds())) {
            track.time.speed = 1 + track.clock->drift_ppm * 1e-6;
            track.time.begin_s = -track.clock->offset_s / track.time.speed;
        }
        earliest_s = std::min(earliest_s, track.time.begin_s);
    }
    for (const auto& track : tracks_) {
        TrackTime& time = track->time;
        time.begin_s -= earliest_s;
        if (time.speed == 1) {  // then every sample can be kept
            time.begin_s = std::round(time.begin_s * track->sample_rate_hz) / track->sample_rate_hz;
        }
    }
}

bool Conversation::is_apart() const {
    return std::any_of(tracks_.begin(), tracks_.end(),
                       [](const auto& track) { return !track->time.is_common(); });
}

double Conversation::end_s() const {
    double end_s = 0;
    for (const auto& track : tracks_) {
        end_s = std::max(end_s, track->time.common_s(track->seconds()));
    }
    return end_s;
}

TrackResult Conversation::facts_of(const Track& track) const {
    TrackResult result;
    result.preparation.steep_high_pass = track.has_rumble;
    result.preparation.phrases = static_cast<int>(track.plan.speech.phrases.phrases.size());
    // A silent track has no phrase to compare its background with.
    if (!track.plan.speech.phrases.phrases.empty()) {
        result.preparation.background_under_speech_db =
            background_under(track.plan.speech.phrases, track.levels.weighted_db, {});
    }
    result.leveling = leveling_of_phrases(track.plan.speech.phrases, track.plan.curve_db);
    result.speaks_s = track.plan.speaks_s(track.bin_s());
    result.turns = track.turns();
    result.clock = track.clock;
    return result;
}

TrackResult Conversation::render(std::size_t index,
                                 const std::string& to,
                                 Aligning aligning,
                                 const Progress& progress) const {
    const Track& track = *tracks_[index];
    TrackResult result = facts_of(track);
    OutputFile out(to, track.format, track.channels, track.sample_rate_hz);
    result.preparation.dithered = out.is_dithered();
    if (aligning == Aligning::Align && is_apart()) {
        render_aligned(track, out, progress);
    } else {
        render_with_curve(track.recording, track.high_pass, track.plan.curve_db, track.bin_frames,
                          out, progress);
    }
    return result;
}

void Conversation::render_aligned(const Track& track,
                                  OutputFile& out,
                                  const Progress& progress) const {
    AlignedReader reader(track.recording, track.high_pass, track.plan.curve_db, track.bin_frames,
                         track.time);
    const long long frames = std::llround(std::ceil(end_s() * track.sample_rate_hz - kRounding));
    std::vector<double> block(static_cast<std::size_t>(track.bin_frames * track.channels));
    for (long long done = 0; done < frames;) {
        const long long here = std::min(track.bin_frames, frames - done);
        const long long got = reader.read(block.data(), here);
        std::fill(block.begin() + got * track.channels, block.end(), 0.0);
        out.take(block.data(), block.data(), here);
        done += here;
        progress(static_cast<double>(done) / static_cast<double>(frames));
    }
    out.finish();
}

void Conversation::render_mix(const std::string& to, const Progress& progress) const {
    std::vector<MixedTrack> mixed;
    for (const auto& track : tracks_) {
        mixed.push_back({track->recording, track->high_pass, track->plan.curve_db,
                         track->bin_frames, track->channels, track->sample_rate_hz, track->time});
    }
    mix_tracks(mixed, to, progress);
}

}  // namespace quorvane
