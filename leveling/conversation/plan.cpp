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

double TrackPlan::speaks_s(double bin_s) const {
    const auto own = std::count(speech.own.begin(), speech.own.end(), true);
    return is_silent() ? 0 : static_cast<double>(own) * bin_s;
}

std::vector<TrackPlan> plan_tracks(const std::vector<MeasuredTrack>& tracks) {
    std::size_t bins = 0;
    for (const MeasuredTrack& track : tracks) {
        const double seconds = static_cast<double>(track.levels->count()) * track.bin_s;
        bins = std::max(bins, static_cast<std::size_t>(std::lround(seconds / kBin_s)));
    }
    std::vector<std::vector<float>> levels;
    levels.reserve(tracks.size());
    for (const MeasuredTrack& track : tracks) {
        levels.push_back(in_bins(track.levels->speech_db, track.bin_s, kBin_s, bins,
                                 static_cast<float>(kSilence_db)));
    }
    const Voices voices = find_voices(levels);
    std::vector<TrackPlan> plans(tracks.size());
    std::vector<BalancedTrack> balanced;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const MeasuredTrack& track = tracks[i];
        TrackSpeech& speech = plans[i].speech;
        const auto in_own_bins = [&](const std::vector<bool>& values) {
            return in_bins<bool>(values, kBin_s, track.bin_s,
                                 static_cast<std::size_t>(track.levels->count()), false);
        };
        speech.own = in_own_bins(voices.speaks[i]);
        speech.others = in_own_bins(others_speak(voices, i));
        speech.phrases = find_own_phrases(track.levels->weighted_db, speech.own);
        balanced.push_back({&speech, track.levels, track.bin_s});
    }
    std::vector<std::vector<float>> curves = balanced_curves(balanced);
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        plans[i].curve_db = std::move(curves[i]);
        lower_for_peaks(tracks[i].levels->peak, kCeiling_db, plans[i].curve_db);
    }
    return plans;
}

}  // namespace quorvane
