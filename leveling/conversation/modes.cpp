#include "leveling/conversation/modes.h"

#include <algorithm>
#include <cstddef>

namespace quorvane {
namespace {

// A histogram makes the search as long as its range, whatever the number of values.
constexpr double kLeast_db = -150;
constexpr double kStep_db = 0.25;
constexpr std::size_t kSteps = 1200;

std::size_t step_of(double value_db) {
    const double step = (value_db - kLeast_db) / kStep_db;
    return static_cast<std::size_t>(std::clamp(step, 0.0, static_cast<double>(kSteps - 1)));
}

}  // namespace

Modes split_at_modes(const std::vector<float>& values_db) {
    std::vector<double> counts(kSteps);
    std::vector<double> sums(kSteps);
    double sum = 0;
    for (const float value : values_db) {
        const std::size_t step = step_of(static_cast<double>(value));
        counts[step] += 1;
        sums[step] += static_cast<double>(value);
        sum += static_cast<double>(value);
    }
    const auto count = static_cast<double>(values_db.size());
    Modes best;
    double most = 0;
    double below = 0;
    double sum_below = 0;
    for (std::size_t step = 0; step + 1 < kSteps; ++step) {
        below += counts[step];
        sum_below += sums[step];
        if (below == 0 || below == count) {
            continue;
        }
        const double low = sum_below / below;
        const double high = (sum - sum_below) / (count - below);
        const double between = below * (count - below) * (high - low) * (high - low);
        if (between > most) {
            most = between;
            best = {(low + high) / 2, low, high, true};
        }
    }
    return best;
}

double percentile(std::vector<float> values, double share) {
    if (values.empty()) {
        return 0;
    }
    const auto at = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + at, values.end());
    return static_cast<double>(values[static_cast<std::size_t>(at)]);
}

}  // namespace quorvane
