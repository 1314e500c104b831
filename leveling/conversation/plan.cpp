#include "leveling/conversation/plan.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "leveling/conversation/balance.h"
#include "leveling/conversation/voices.h"
#include "leveling/preparation/gain_curve.h"
#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

constexpr double kCeiling_db = -1;

/** A track's levels in the common bins: by the nearest moment. */
std::vector<float> in_common_bins(const MeasuredTrack& track, std::size_t count) {
    const std::vector<float>& levels = track.levels->speech_db;
    std::vector<float> result(count, static_cast<float>(kSilence_db));
    for (std::size_t i = 0; i < count; ++i) {
        const double at = track.time.own_s((static_cast<double>(i) + 0.5) * kBin_s) / track.bin_s;
        if (at >= 0 && at < static_cast<double>(levels.size())) {
            result[i] = levels[static_cast<std::size_t>(at)];
        }
    }
    return result;
}

/** And back. */
std::vector<bool> in_own_bins(const MeasuredTrack& track, const std::vector<bool>& values) {
    std::vector<bool> result(static_cast<std::size_t>(track.levels->count()));
    for (std::size_t i = 0; i < result.size(); ++i) {
        const double middle_s = (static_cast<double>(i) + 0.5) * track.bin_s;
        const auto at = static_cast<std::size_t>(track.time.common_s(middle_s) / kBin_s);
        result[i] = at < values.size() && values[at];
    }
    return result;
}

}  // namespace

double TrackPlan::speaks_s(double bin_s) const {
    const auto own = std::count(speech.own.begin(), speech.own.end(), true);
    return is_silent() ? 0 : static_cast<double>(own) * bin_s;
}

std::vector<TrackPlan> plan_tracks(const std::vector<MeasuredTrack>& tracks) {
    std::size_t bins = 0;
    for (const MeasuredTrack& track : tracks) {
        const double seconds =
            track.time.common_s(static_cast<double>(track.levels->count()) * track.bin_s);
        bins = std::max(bins, static_cast<std::size_t>(std::lround(seconds / kBin_s)));
    }
    std::vector<std::vector<float>> levels;
    levels.reserve(tracks.size());
    for (const MeasuredTrack& track : tracks) {
        levels.push_back(in_common_bins(track, bins));
    }
    const Voices voices = find_voices(levels);
    std::vector<TrackPlan> plans(tracks.size());
    std::vector<BalancedTrack> balanced;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const MeasuredTrack& track = tracks[i];
        TrackSpeech& speech = plans[i].speech;
        speech.own = in_own_bins(track, voices.speaks[i]);
        speech.others = in_own_bins(track, others_speak(voices, i));
        speech.phrases = find_own_phrases(track.levels->weighted_db, speech.own);
        balanced.push_back({&speech, track.levels, track.bin_s, track.time});
    }
    std::vector<std::vector<float>> curves = balanced_curves(balanced);
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        plans[i].curve_db = std::move(curves[i]);
        lower_for_peaks(tracks[i].levels->peak, kCeiling_db, plans[i].curve_db);
    }
    return plans;
}

}  // namespace quorvane
