#include "leveling/conversation/conversation.h"

#include <algorithm>
#include <utility>

#include "Common/stream/pump.h"
#include "leveling/conversation/mix.h"
#include "leveling/conversation/plan.h"
#include "leveling/preparation/bin_levels.h"
#include "leveling/preparation/evenness.h"
#include "leveling/preparation/rendering.h"
#include "leveling/preparation/rumble.h"
#include "leveling/preparation/sound_files.h"

namespace quorvane {
/** A track: how it was recorded, its levels, and what is to be done to it. */
struct Conversation::Track {
    std::string recording;
    int channels = 0;
    int sample_rate_hz = 0;
    // libsndfile's number; levels and gains below are in bins of so many frames.
    int format = 0;
    long long bin_frames = 0;
    BinLevels levels;
    std::vector<Section> high_pass;
    bool has_rumble = false;
    TrackPlan plan;

    double bin_s() const { return static_cast<double>(bin_frames) / sample_rate_hz; }

    /** Measures the track; where it rumbles, a second time behind a steeper filter. */
    void read(const std::function<void(double)>& progress);
    /** Reads the whole track through high_pass. */
    LevelAnalyser measured() const;
};

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
    // A plan needs the levels of all tracks.
    std::vector<MeasuredTrack> measured;
    for (const auto& track : tracks_) {
        measured.push_back({&track->levels, track->bin_s()});
    }
    std::vector<TrackPlan> plans = plan_tracks(measured);
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        tracks_[i]->plan = std::move(plans[i]);
    }
}

TrackResult Conversation::render(std::size_t index,
                                 const std::string& to,
                                 const Progress& progress) const {
    const Track& track = *tracks_[index];
    TrackResult result;
    OutputFile out(to, track.format, track.channels, track.sample_rate_hz);
    result.preparation.dithered = out.is_dithered();
    result.preparation.steep_high_pass = track.has_rumble;
    result.preparation.phrases = static_cast<int>(track.plan.speech.phrases.phrases.size());
    // A silent track has no phrase to compare its background with.
    if (!track.plan.speech.phrases.phrases.empty()) {
        result.preparation.background_under_speech_db =
            background_under(track.plan.speech.phrases, track.levels.weighted_db, {});
    }
    result.leveling = leveling_of_phrases(track.plan.speech.phrases, track.plan.curve_db);
    result.speaks_s = track.plan.speaks_s(track.bin_s());
    // Filter and gains are applied in one reading.
    render_with_curve(track.recording, track.high_pass, track.plan.curve_db, track.bin_frames, out,
                      progress);
    return result;
}

void Conversation::render_mix(const std::string& to, const Progress& progress) const {
    std::vector<MixedTrack> mixed;
    for (const auto& track : tracks_) {
        mixed.push_back({track->recording, track->high_pass, track->plan.curve_db,
                         track->bin_frames, track->channels, track->sample_rate_hz});
    }
    mix_tracks(mixed, to, progress);
}

}  // namespace quorvane
