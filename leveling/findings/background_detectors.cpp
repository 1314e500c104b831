#include <algorithm>
#include <cmath>

#include "leveling/findings/detectors.h"
#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

constexpr std::size_t kLeastWindows = 8;
constexpr std::size_t kQuietShare = 4;  // the quietest quarter of the windows
constexpr double kLeastProminence_db = 10;
constexpr double kDigitalSilence_db = -100;
constexpr std::size_t kFloorShare = 10;  // the tenth percentile

constexpr double kUnderWords_db = 10;   // a gap between words
constexpr double kTonal = 0.25;         // the median correlation
constexpr std::size_t kLeastGaps = 10;  // tenths
constexpr double kFarUnderSpeech_db = 60;

double middle_of(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/** The quietest windows, but for those with nothing in them. */
std::vector<LowWindow> quiet_windows(const SoundProfile& profile) {
    std::vector<LowWindow> windows;
    for (const LowWindow& window : profile.lows) {
        if (level_of_power(static_cast<double>(window.voice)) > kDigitalSilence_db) {
            windows.push_back(window);
        }
    }
    std::stable_sort(
        windows.begin(), windows.end(),
        [](const LowWindow& one, const LowWindow& other) { return one.voice < other.voice; });
    windows.resize(windows.size() / kQuietShare);
    return windows;
}

}  // namespace

Measured measure_hum(const SpeechView& view) {
    Measured found;
    const std::vector<LowWindow> windows = quiet_windows(view.profile);
    if (windows.size() < kLeastWindows) {
        return found;
    }
    for (const std::size_t mains : {0, 1}) {
        std::vector<double> over_db;
        std::vector<double> levels_db;
        for (const LowWindow& window : windows) {
            const double hum_db = level_of_power(static_cast<double>(window.hum[mains]));
            over_db.push_back(hum_db - level_of_power(static_cast<double>(window.beside[mains])));
            levels_db.push_back(hum_db);
        }
        const double value = middle_of(levels_db) - view.speech_db;
        if (middle_of(over_db) >= kLeastProminence_db && value > found.badness) {
            found.value = value;
            found.badness = value;
            found.detail = mains == 0 ? "50 Hz" : "60 Hz";
        }
    }
    return found;
}

Measured measure_noise(const SpeechView& view) {
    Measured found;
    std::vector<double> levels_db;
    for (const float level : view.levels_db) {
        if (static_cast<double>(level) > kDigitalSilence_db) {
            levels_db.push_back(static_cast<double>(level));
        }
    }
    if (levels_db.size() < 2 * kFloorShare) {
        return found;
    }
    const auto tenth =
        levels_db.begin() + static_cast<std::ptrdiff_t>(levels_db.size() / kFloorShare);
    std::nth_element(levels_db.begin(), tenth, levels_db.end());
    found.value = view.speech_db - *tenth;
    found.badness = -found.value;
    return found;
}

Measured measure_rumble(const SpeechView& view) {
    Measured found;
    double sum = 0;
    std::vector<std::size_t> tenths;
    for (const LowWindow& window : view.profile.lows) {
        sum += static_cast<double>(window.rumble);
    }
    if (view.profile.lows.empty()) {
        return found;
    }
    found.value =
        level_of_power(sum / static_cast<double>(view.profile.lows.size())) - view.speech_db;
    found.badness = found.value;
    for (const LowWindow& window : view.profile.lows) {
        if (level_of_power(static_cast<double>(window.rumble)) > view.speech_db + found.value) {
            tenths.push_back(static_cast<std::size_t>(static_cast<double>(window.time_s) /
                                                      view.profile.tenth_s()));
        }
    }
    found.places = places_of(view.profile, tenths);
    return found;
}

Measured measure_music(const SpeechView& view) {
    Measured found;
    std::vector<double> tonality;
    std::vector<std::size_t> gaps;
    double sum = 0;
    for (std::size_t i = 0; i < view.profile.tenths.size(); ++i) {
        if (!view.has_words(i) && view.profile.tenths[i].tonality != kNoTonality &&
            view.level(i) <= view.speech_db - kUnderWords_db &&
            view.level(i) >= view.speech_db - kFarUnderSpeech_db) {
            gaps.push_back(i);
            tonality.push_back(static_cast<double>(view.profile.tenths[i].tonality));
            sum += power_of_level(view.level(i));
        }
    }
    if (gaps.size() < kLeastGaps || middle_of(tonality) < kTonal) {
        return found;
    }
    found.value = level_of_power(sum / static_cast<double>(gaps.size())) - view.speech_db;
    found.badness = found.value;
    found.places = places_of(view.profile, gaps);
    return found;
}

}  // namespace quorvane
