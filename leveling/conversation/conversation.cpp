#include "leveling/conversation/conversation.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "Common/stream/pump.h"
#include "leveling/conversation/balance.h"
#include "leveling/conversation/mix.h"
#include "leveling/conversation/voices.h"
#include "leveling/preparation/bin_levels.h"
#include "leveling/preparation/evenness.h"
#include "leveling/preparation/gain_curve.h"
#include "leveling/preparation/levels.h"
#include "leveling/preparation/rendering.h"
#include "leveling/preparation/rumble.h"
#include "leveling/preparation/sound_files.h"

namespace quorvane {
namespace {

constexpr double kCeiling_db = -1;

/** A series in bins of another length, or another number of them: by the nearest moment. */
template <class Value>
std::vector<Value> in_bins(const std::vector<Value>& values,
                           double step_s,
                           double new_step_s,
                           std::size_t count,
                           Value behind) {
    std::vector<Value> result(count, behind);
    for (std::size_t i = 0; i < count; ++i) {
        const double middle_s = (static_cast<double>(i) + 0.5) * new_step_s;
        const auto at = static_cast<std::size_t>(middle_s / step_s);
        if (at < values.size()) {
            result[i] = values[at];
        }
    }
    return result;
}

}  // namespace

struct Conversation::Track {
    std::string recording;
    int channels = 0;
    int sample_rate_hz = 0;
    int format = 0;
    long long bin_frames = 0;
    BinLevels levels;
    std::vector<Section> high_pass;
    bool has_rumble = false;
    TrackSpeech speech;           // in bins of the track's own
    std::vector<float> curve_db;  // likewise

    double bin_s() const { return static_cast<double>(bin_frames) / sample_rate_hz; }

    double seconds() const { return static_cast<double>(levels.count()) * bin_s(); }

    void read(const std::function<void(double)>& progress);
    LevelAnalyser measured() const;

    std::size_t common_bins() const { return static_cast<std::size_t>(std::lround(seconds() / kBin_s)); }
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
    find_gains();
}

void Conversation::find_gains() {
    std::size_t bins = 0;
    for (const auto& track : tracks_) {
        bins = std::max(bins, track->common_bins());
    }
    std::vector<std::vector<float>> levels;
    for (const auto& track : tracks_) {
        levels.push_back(in_bins(track->levels.speech_db, track->bin_s(), kBin_s, bins,
                                 static_cast<float>(kSilence_db)));
    }
    const Voices voices = find_voices(levels);
    std::vector<BalancedTrack> balanced;
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        Track& track = *tracks_[i];
        const auto count = static_cast<std::size_t>(track.levels.count());
        const auto in_own_bins = [&](const std::vector<bool>& values) {
            return in_bins<bool>(values, kBin_s, track.bin_s(), count, false);
        };
        track.speech.own = in_own_bins(voices.speaks[i]);
        track.speech.others = in_own_bins(others_speak(voices, i));
        track.speech.phrases = find_own_phrases(track.levels.weighted_db, track.speech.own);
    }
    balance();
}

/** Moves each voice's goal until all are equally loud in the mix. */
void Conversation::balance() {
    std::vector<BalancedTrack> balanced;
    for (const auto& track : tracks_) {
        balanced.push_back({&track->speech, &track->levels, track->bin_s()});
    }
    const std::vector<std::vector<float>> curves = balanced_curves(balanced);
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        tracks_[i]->curve_db = curves[i];
        lower_for_peaks(tracks_[i]->levels.peak, kCeiling_db, tracks_[i]->curve_db);
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
    result.preparation.phrases = static_cast<int>(track.speech.phrases.phrases.size());
    if (!track.speech.phrases.phrases.empty()) {
        result.preparation.background_under_speech_db =
            background_under(track.speech.phrases, track.levels.weighted_db, {});
    }
    result.leveling = leveling_of_phrases(track.speech.phrases, track.curve_db);
    const auto own = std::count(track.speech.own.begin(), track.speech.own.end(), true);
    result.speaks_s =
        track.speech.phrases.phrases.empty() ? 0 : static_cast<double>(own) * track.bin_s();
    render_with_curve(track.recording, track.high_pass, track.curve_db, track.bin_frames, out,
                      progress);
    return result;
}

void Conversation::render_mix(const std::string& to, const Progress& progress) const {
    std::vector<MixedTrack> mixed;
    for (const auto& track : tracks_) {
        mixed.push_back({track->recording, track->high_pass, track->curve_db, track->bin_frames,
                         track->channels, track->sample_rate_hz});
    }
    mix_tracks(mixed, to, progress);
}

}  // namespace quorvane
