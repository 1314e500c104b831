#include "leveling/engine/passages.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

#include "Common/units.h"

namespace quorvane {
namespace {

constexpr std::size_t kMostPoints = 1200;
constexpr double kSilence = -std::numeric_limits<double>::infinity();

double to_db(double gain) {
    return gain > 0.0 ? linear_to_db(gain) : kSilence;
}

double mean(std::vector<double>::const_iterator begin, std::vector<double>::const_iterator end) {
    return std::accumulate(begin, end, 0.0) / static_cast<double>(end - begin);
}

/** At most kMostPoints of the values, each the mean of its neighbours. */
Curve thin(const std::vector<double>& values, double step_s) {
    const std::size_t group = (values.size() + kMostPoints - 1) / kMostPoints;
    Curve curve{step_s * static_cast<double>(group), {}};
    for (std::size_t start = 0; start < values.size(); start += group) {
        const auto begin = values.begin() + static_cast<std::ptrdiff_t>(start);
        const auto end =
            values.begin() + static_cast<std::ptrdiff_t>(std::min(values.size(), start + group));
        curve.values.push_back(mean(begin, end));
    }
    return curve;
}

}  // namespace

std::optional<Leveling> leveling_of(const LevelFindings& found) {
    if (found.passage_count == 0 || found.gain_count == 0) {
        return std::nullopt;
    }
    Leveling leveling;
    const double rate = found.sample_rate_hz;
    for (std::size_t i = 0; i < found.passage_count; ++i) {
        const LevelPassage& passage = found.passages[i];
        double level_db = passage.level_db;
        if (level_db <= kLevelSilence_db) {
            level_db = kSilence;
        }
        leveling.passages.push_back({static_cast<double>(passage.begin_frame) / rate,
                                     static_cast<double>(passage.end_frame) / rate, level_db,
                                     to_db(passage.gain)});
    }
    std::vector<double> curve(found.gains, found.gains + found.gain_count);
    std::transform(curve.begin(), curve.end(), curve.begin(), to_db);
    leveling.mean_gain_db = mean(curve.begin(), curve.end());
    leveling.least_gain_db = *std::min_element(curve.begin(), curve.end());
    leveling.greatest_gain_db = *std::max_element(curve.begin(), curve.end());
    leveling.gain_db = thin(curve, found.bin_s);
    return leveling;
}

}  // namespace quorvane
