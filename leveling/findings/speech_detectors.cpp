#include <algorithm>
#include <cmath>

#include "leveling/findings/detectors.h"
#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

// Decays, in slots of 10 ms and half dB.
constexpr double kPerDb = 2;
constexpr double kFloor_db = -120;
constexpr double kNearSpeech_db = 12;  // where a decay begins
constexpr double kFarSpeech_db = 20;
constexpr double kDeepFall_db = 12;
constexpr double kLeastFall_db = 8;
constexpr double kRise_db = 1;  // that ends it
constexpr double kSlot_s = 0.01;
constexpr std::size_t kLeastSlots = 4;
constexpr std::size_t kManyDecays = 8;
constexpr std::size_t kLeastDecays = 6;
constexpr std::size_t kFastShare = 4;  // the fast quarter
constexpr double kDecibelsOfTime = 60;

constexpr double kLeastShare = 0.1;  // of the words, in each of two groups
constexpr double kLeastGroup_s = 2;
constexpr double kLeastBetween_db = 6;  // nothing lies between the groups
constexpr int kLeastTurns = 3;

constexpr double kLongPause_s = 10;
constexpr double kSecondsPerMinute = 60;
constexpr double kOneBreak_s = 0.02;
constexpr double kBreakUnderSpeech_db = 16;
constexpr double kQuietest_db = -48;  // 128 steps of 16 bits: quieter speech is rounded to zeros

/** The levels of 10 ms, each the mean of three. */
std::vector<double> envelope_of(const SoundProfile& profile) {
    std::vector<double> levels;
    for (const Tenth& tenth : profile.tenths) {
        for (const std::uint8_t level : tenth.slot_levels) {
            levels.push_back(kFloor_db + level / kPerDb);
        }
    }
    std::vector<double> smooth = levels;
    for (std::size_t i = 1; i + 1 < levels.size(); ++i) {
        smooth[i] = (levels[i - 1] + levels[i] + levels[i + 1]) / 3;
    }
    return smooth;
}

/** dB per slot of a line through the levels (least squares), below 0 for a fall. */
double slope_of(const std::vector<double>& levels, std::size_t from, std::size_t to) {
    const auto count = static_cast<double>(to - from);
    const double middle = (count - 1) / 2;
    double products = 0;
    double squares = 0;
    for (std::size_t i = from; i < to; ++i) {
        const double x = static_cast<double>(i - from) - middle;
        products += x * levels[i];
        squares += x * x;
    }
    return products / squares;
}

/** The times that decays of so many dB and more, from peaks above a level on, take for 60 dB. */
std::vector<double> decay_times(const std::vector<double>& levels, double above, double fall) {
    std::vector<double> times_s;
    for (std::size_t i = 1; i + 1 < levels.size(); ++i) {
        if (levels[i] < above || levels[i] < levels[i - 1] || levels[i] <= levels[i + 1]) {
            continue;
        }
        std::size_t lowest_at = i;
        for (std::size_t end = i;
             end < levels.size() && levels[end] <= levels[lowest_at] + kRise_db; ++end) {
            lowest_at = levels[end] < levels[lowest_at] ? end : lowest_at;
        }
        const double depth = levels[i] - levels[lowest_at];
        if (depth >= fall && lowest_at - i >= kLeastSlots) {
            // The floor that it ends in does not belong to it.
            std::size_t to = i;
            while (levels[to] > levels[lowest_at] + depth / 4) {
                ++to;
            }
            to = std::max(to, i + kLeastSlots);
            times_s.push_back(-kDecibelsOfTime * kSlot_s / slope_of(levels, i, to));
        }
    }
    return times_s;
}

/** A phrase's level and how many bins of it are words. */
struct Group {
    double level_db;
    double words;
};

/**
 * The mean level of the louder half of so many words, the loudest ones. The owner of a microphone
 * is near and far by turns; what spills in is as far as ever.
 */
double loudest_half_of(const std::vector<Group>& groups, double words) {
    double sum = 0;
    double taken = 0;
    for (auto group = groups.rbegin(); group != groups.rend() && taken < words / 2; ++group) {
        sum += group->words * group->level_db;
        taken += group->words;
    }
    return sum / taken;
}

/** How many there are, where both channels break at once counted once. */
double count_apart(std::vector<FindingPlace> places) {
    std::sort(places.begin(), places.end(), [](const FindingPlace& one, const FindingPlace& other) {
        return one.from_s < other.from_s;
    });
    double count = 0;
    double last_s = -1;
    for (const FindingPlace& place : places) {
        count += place.from_s > last_s + kOneBreak_s ? 1 : 0;
        last_s = std::max(last_s, place.to_s);
    }
    return count;
}

}  // namespace

Measured measure_reverberation(const SpeechView& view) {
    Measured found;
    found.unit = "s";
    const std::vector<double> levels = envelope_of(view.profile);
    std::vector<double> times_s = decay_times(levels, view.power_db - kNearSpeech_db, kDeepFall_db);
    if (times_s.size() < kManyDecays) {
        // In a long reverberation the next word comes before the level has fallen far.
        times_s = decay_times(levels, view.power_db - kFarSpeech_db, kLeastFall_db);
    }
    if (times_s.size() < kLeastDecays) {
        return found;
    }
    const auto fast = times_s.begin() + static_cast<std::ptrdiff_t>(times_s.size() / kFastShare);
    std::nth_element(times_s.begin(), fast, times_s.end());
    found.value = std::floor(*fast * 100 + 0.5) / 100;
    found.badness = found.value;
    return found;
}

Measured measure_spill(const SpeechView& view) {
    Measured found;
    std::vector<Group> groups;
    double all = 0;
    for (const Phrase& phrase : view.phrases.phrases) {
        const auto begin = view.phrases.words.begin();
        const auto words = static_cast<double>(
            std::count(begin + phrase.bins.begin, begin + phrase.bins.end, true));
        groups.push_back({phrase.level_db, words});
        all += words;
    }
    std::stable_sort(groups.begin(), groups.end(), [](const Group& one, const Group& other) {
        return one.level_db < other.level_db;
    });
    double low_words = 0;
    double low_sum = 0;
    double border_db = 0;
    for (std::size_t i = 0; i + 1 < groups.size(); ++i) {
        low_words += groups[i].words;
        low_sum += groups[i].words * groups[i].level_db;
        const double high_words = all - low_words;
        if (std::min(low_words, high_words) < std::max(kLeastShare * all, kLeastGroup_s / kBin_s) ||
            groups[i + 1].level_db - groups[i].level_db < kLeastBetween_db) {
            continue;
        }
        const double apart = loudest_half_of(groups, high_words) - low_sum / low_words;
        if (apart > found.badness) {
            found.badness = apart;
            border_db = groups[i].level_db;
        }
    }
    if (found.badness == kNotMeasured) {
        return found;
    }
    int turns = 0;
    bool was_low = false;
    for (const Phrase& phrase : view.phrases.phrases) {
        const bool is_low = phrase.level_db <= border_db;
        turns += is_low != was_low ? 1 : 0;
        was_low = is_low;
        if (is_low) {
            found.places.push_back(view.place_of(phrase.bins));
        }
    }
    found.places = longest_places(std::move(found.places));
    found.value = found.badness;
    found.badness = turns >= kLeastTurns ? found.value : kNotMeasured;
    return found;
}

Measured measure_pauses(const SpeechView& view) {
    Measured found;
    found.unit = "min";
    for (const Stretch& pause : view.pauses) {
        const double seconds = static_cast<double>(pause.length()) * kBin_s;
        if (seconds >= kLongPause_s) {
            found.value += seconds / kSecondsPerMinute;
            found.places.push_back(view.place_of(pause));
        }
    }
    found.badness = found.value;
    found.places = longest_places(std::move(found.places));
    return found;
}

Measured measure_breaks(const SpeechView& view) {
    Measured found;
    found.unit = "";
    for (const Break& place : view.profile.breaks) {
        const auto tenth =
            static_cast<std::size_t>(static_cast<double>(place.from_s) / view.profile.tenth_s());
        const double size_db = level_of_amplitude(static_cast<double>(place.size));
        const double least_db = std::max(view.power_db - kBreakUnderSpeech_db, kQuietest_db);
        if (tenth < view.profile.tenths.size() && size_db > least_db) {
            found.places.push_back(
                {static_cast<double>(place.from_s), static_cast<double>(place.to_s)});
        }
    }
    found.value = count_apart(found.places);
    found.badness = found.value;
    found.places = longest_places(std::move(found.places));
    return found;
}

}  // namespace quorvane
