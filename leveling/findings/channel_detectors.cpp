#include <algorithm>
#include <array>
#include <cmath>

#include "leveling/findings/detectors.h"
#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

constexpr const char* kSides[] = {"left", "right"};
constexpr double kLeastRuns = 8;  // that an unclipped voice never has at its extreme
// dBFS; where both sides are below it there is nothing to compare.
constexpr double kSideOfSilence_db = -90;
constexpr double kMostBetweenSides_db = 12;  // farther apart their phase means nothing
// The largest value that is reported, where one side is digital silence.
constexpr double kMostApart_db = 100;
// A correlation coefficient: below it the sides work against each other.
constexpr double kOpposed = -0.5;
// The largest loss that is reported, for sides that cancel each other.
constexpr double kMostLoss_db = 60;

/** Over the tenths with words: squares of each side, products of both, and how many tenths. */
struct SideSums {
    std::array<double, 2> power{};
    double cross = 0;
    double count = 0;
};

/** In dB, from the sums of squares and of products over the same samples. */
double mono_loss(double left, double right, double cross) {
    const double apart = (left + right) / 2;
    const double together = (left + right + 2 * cross) / 4;
    return apart > 0 ? std::min(level_of_power(apart) - level_of_power(std::max(together, 0.0)),
                                kMostLoss_db)
                     : 0;
}

SideSums sums_of(const SpeechView& view) {
    SideSums sums;
    for (std::size_t i = 0; i < view.profile.tenths.size(); ++i) {
        const Tenth& tenth = view.profile.tenths[i];
        if (view.has_words(i)) {
            // Without the DC offset, which is not sound.
            const auto left = static_cast<double>(tenth.mean[0]);
            const auto right = static_cast<double>(tenth.mean[1]);
            sums.power[0] += static_cast<double>(tenth.power[0]) - left * left;
            sums.power[1] += static_cast<double>(tenth.power[1]) - right * right;
            sums.cross += static_cast<double>(tenth.cross) - left * right;
            ++sums.count;
        }
    }
    return sums;
}

}  // namespace

Measured measure_clipping(const SpeechView& view) {
    Measured found;
    found.unit = "%";
    double samples = 0;
    std::array<double, 2> of_side{};
    std::vector<std::size_t> tenths;
    for (std::size_t i = 0; i < view.profile.tops.size(); ++i) {
        const FlatTops& tops = view.profile.tops[i];
        if (tops.runs() < kLeastRuns) {
            continue;
        }
        samples += tops.samples();
        // Two for each channel: the upper tops and the lower ones.
        of_side[i / 2] += tops.samples();
        for (const FlatTops::Place& place : tops.places()) {
            tenths.push_back(place.tenth);
        }
    }
    const auto all = static_cast<double>(view.profile.frames) * view.profile.channels;
    if (samples == 0 || all == 0) {
        return found;
    }
    std::sort(tenths.begin(), tenths.end());
    found.value = 100 * samples / all;
    found.badness = found.value;
    found.places = places_of(view.profile, tenths);
    // Only one side was clipped.
    if (view.profile.channels == 2 && std::min(of_side[0], of_side[1]) == 0) {
        found.detail = kSides[of_side[0] > 0 ? 0 : 1];
    }
    return found;
}

Measured measure_sides(const SpeechView& view) {
    Measured found;
    const SideSums sums = sums_of(view);
    if (view.profile.channels != 2 || sums.count == 0) {
        return found;
    }
    const double left_db = level_of_power(sums.power[0] / sums.count);
    const double right_db = level_of_power(sums.power[1] / sums.count);
    if (std::max(left_db, right_db) < kSideOfSilence_db) {
        return found;
    }
    found.value = std::min(std::abs(left_db - right_db), kMostApart_db);
    found.badness = found.value;
    found.detail = kSides[left_db < right_db ? 0 : 1];
    return found;
}

Measured measure_phase(const SpeechView& view) {
    Measured found;
    const SideSums sums = sums_of(view);
    const Measured sides = measure_sides(view);
    if (sides.badness == kNotMeasured || sides.value > kMostBetweenSides_db) {
        return found;
    }
    found.value = mono_loss(sums.power[0], sums.power[1], sums.cross);
    found.badness = found.value;
    std::vector<std::size_t> tenths;
    for (std::size_t i = 0; i < view.profile.tenths.size(); ++i) {
        const Tenth& tenth = view.profile.tenths[i];
        const auto left = static_cast<double>(tenth.power[0]);
        const auto right = static_cast<double>(tenth.power[1]);
        if (view.has_words(i) &&
            static_cast<double>(tenth.cross) < kOpposed * std::sqrt(left * right)) {
            tenths.push_back(i);
        }
    }
    found.places = places_of(view.profile, tenths);
    return found;
}

Measured measure_offset(const SpeechView& view) {
    Measured found;
    found.unit = "%";
    const auto count = static_cast<double>(view.profile.tenths.size());
    std::array<double, 2> means{};
    for (const Tenth& tenth : view.profile.tenths) {
        means[0] += static_cast<double>(tenth.mean[0]) / count;
        means[1] += static_cast<double>(tenth.mean[1]) / count;
    }
    const std::size_t side = std::abs(means[1]) > std::abs(means[0]) ? 1 : 0;
    found.value = 100 * means[side];
    found.badness = level_of_amplitude(means[side]) - view.power_db;
    found.detail = view.profile.channels == 2 ? kSides[side] : "";
    return found;
}

}  // namespace quorvane
