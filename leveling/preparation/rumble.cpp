#include "leveling/preparation/rumble.h"

#include <utility>

#include "leveling/preparation/levels.h"
#include "leveling/preparation/pauses.h"

namespace quorvane {
namespace {

// Lows this near the speech are not part of a voice.
constexpr double kLowsUnderSpeech_db = 3;
constexpr double kSteepFrom_hz = 110;
// 62.5 Hz, two octaves wide.
constexpr double kEngineHighPass_hz = 62.5;
constexpr double kEngineHighPassQuality = 2.0 / 3;

}  // namespace

Section gentle_high_pass(int sample_rate_hz) {
    return high_pass(kEngineHighPass_hz, kEngineHighPassQuality, sample_rate_hz);
}

std::vector<Section> rumble_filter(const BinLevels& levels,
                                   const std::vector<bool>& speech,
                                   int sample_rate_hz) {
    const Stretch whole{0, levels.count()};
    const double speech_db = speech_level(levels.speech_db, speech, whole);
    const double low_db = speech_level(levels.low_db, speech, whole);
    const bool rumbles = speech_db > kSilence_db && low_db > speech_db - kLowsUnderSpeech_db;
    return rumbles ? steep_high_pass(kSteepFrom_hz, sample_rate_hz) : std::vector<Section>();
}

void replace_rumbling_levels(BinLevels& levels, BinLevels&& without_rumble) {
    levels.weighted_db = std::move(without_rumble.weighted_db);
    levels.louder_db = std::move(without_rumble.louder_db);
    levels.peak = std::move(without_rumble.peak);
}

}  // namespace quorvane
