#include "leveling/channels/voice_curve.h"

#include <algorithm>

#include "leveling/preparation/gain_curve.h"
#include "leveling/preparation/levels.h"
#include "leveling/preparation/pauses.h"

namespace quorvane {
namespace {

constexpr double kCeiling_db = -1;
constexpr int kRounds = 3;        // peaks that are held take loudness away
constexpr long kLeastWords = 40;  // bins: two seconds

}  // namespace

VoiceCurve voice_curve(const BinLevels& levels, std::optional<double> level_db) {
    VoiceCurve result;
    const std::vector<bool> speech = find_speech(levels.speech_db);
    const std::vector<Stretch> pauses = find_pauses(levels, speech);
    Phrases phrases = find_phrases(levels.weighted_db, speech, pauses);
    // Steady noise may be as loud as words, but it is not speech.
    long words = 0;
    for (std::size_t bin = 0; bin < speech.size(); ++bin) {
        words += speech[bin] && phrases.words[bin] ? 1 : 0;
    }
    if (words < kLeastWords) {
        return result;
    }
    const auto level_with = [&](const std::vector<float>& gains) {
        std::vector<float> behind = levels.louder_db;
        std::transform(behind.begin(), behind.end(), gains.begin(), behind.begin(),
                       [](float level, float gain) { return level + gain; });
        return speech_level(behind, phrases.words, {0, levels.count()});
    };
    const double wanted = level_db ? *level_db : level_with(std::vector<float>(speech.size()));
    double goal = wanted;
    for (int round = 0; round < kRounds; ++round) {
        result.curve_db = gain_curve(levels, phrases, pauses, {goal, kCeiling_db});
        goal += wanted - level_with(result.curve_db);
    }
    result.curve_db = gain_curve(levels, phrases, pauses, {goal, kCeiling_db});
    result.phrases = std::move(phrases);
    return result;
}

}  // namespace quorvane
