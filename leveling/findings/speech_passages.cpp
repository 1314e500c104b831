#include "leveling/findings/speech_passages.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

constexpr double kSilence = -std::numeric_limits<double>::infinity();
constexpr double kLoudnessOffset_db = -0.691;  // of BS.1770: a sine of 1 kHz reads its level
constexpr double kRelativeGate = 0.1;          // 10 dB
constexpr double kLeastPassage_s = 1;
constexpr std::size_t kMostPassages = 200;

/** The mean of the powers from begin to end that are not below the gate. */
double mean_above(const Curve& powers, std::size_t begin, std::size_t end, double gate) {
    double sum = 0;
    double count = 0;
    for (std::size_t i = begin; i < end; ++i) {
        if (powers.values[i] >= gate) {
            sum += powers.values[i];
            ++count;
        }
    }
    return count > 0 ? sum / count : 0;
}

double level_of(const std::optional<Loudness>& loudness, const SpeechPassage& passage) {
    if (!loudness || loudness->powers.values.empty()) {
        return kSilence;
    }
    const Curve& powers = loudness->powers;
    const std::size_t count = powers.values.size();
    const auto begin =
        std::min(static_cast<std::size_t>(std::ceil(passage.from_s / powers.step_s)), count - 1);
    const auto end =
        std::clamp(static_cast<std::size_t>(passage.to_s / powers.step_s), begin + 1, count);
    const double gate = kRelativeGate * mean_above(powers, begin, end, 0);
    const double power = mean_above(powers, begin, end, gate);
    return power > 0 ? kLoudnessOffset_db + level_of_power(power) : kSilence;
}

double span_of(const SpeechLevels& speech, double SpeechPassage::*level) {
    const auto length = [](const SpeechPassage& passage) { return passage.to_s - passage.from_s; };
    const bool has_long = std::any_of(
        speech.passages.begin(), speech.passages.end(),
        [&](const SpeechPassage& passage) { return length(passage) >= kLeastPassage_s; });
    double least = std::numeric_limits<double>::infinity();
    double most = kSilence;
    for (const SpeechPassage& passage : speech.passages) {
        if (std::isfinite(passage.*level) && (!has_long || length(passage) >= kLeastPassage_s)) {
            least = std::min(least, passage.*level);
            most = std::max(most, passage.*level);
        }
    }
    return most == kSilence ? kSilence : most - least;
}

void keep_longest(std::vector<SpeechPassage>& passages) {
    if (passages.size() <= kMostPassages) {
        return;
    }
    std::stable_sort(passages.begin(), passages.end(),
                     [](const SpeechPassage& one, const SpeechPassage& other) {
                         return one.to_s - one.from_s > other.to_s - other.from_s;
                     });
    passages.resize(kMostPassages);
    std::sort(passages.begin(), passages.end(),
              [](const SpeechPassage& one, const SpeechPassage& other) {
                  return one.from_s < other.from_s;
              });
}

}  // namespace

void add_speech_levels(const std::optional<Loudness>& before,
                       const std::optional<Loudness>& after,
                       SpeechLevels& speech) {
    for (SpeechPassage& passage : speech.passages) {
        passage.before_db = level_of(before, passage);
        passage.after_db = level_of(after, passage);
    }
    speech.count = static_cast<int>(speech.passages.size());
    speech.span_before_db = span_of(speech, &SpeechPassage::before_db);
    speech.span_after_db = span_of(speech, &SpeechPassage::after_db);
    keep_longest(speech.passages);
}

}  // namespace quorvane
