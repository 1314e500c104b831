#include "leveling/preparation/curve_parts.h"

#include <algorithm>
#include <cstddef>

namespace quorvane {
namespace {

double middle_of(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

std::vector<double> phrase_gains(const Phrases& phrases, double goal_db, double most_db) {
    std::vector<double> gains;
    for (const Phrase& phrase : phrases.phrases) {
        gains.push_back(goal_db - phrase.level_db);
    }
    const double middle = middle_of(gains);
    for (double& gain : gains) {
        gain = std::clamp(gain, middle - most_db, middle + most_db);
    }
    return gains;
}

void fill(std::vector<float>& curve, Stretch range, double gain) {
    std::fill(curve.begin() + range.begin, curve.begin() + range.end, static_cast<float>(gain));
}

void ramp(std::vector<float>& curve, Stretch range, double from, double to) {
    const auto steps = static_cast<double>(range.length() + 1);
    for (long long i = range.begin; i < range.end; ++i) {
        const double way = static_cast<double>(i - range.begin + 1) / steps;
        curve[static_cast<std::size_t>(i)] = static_cast<float>(from + (to - from) * way);
    }
}

}  // namespace quorvane
