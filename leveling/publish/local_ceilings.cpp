#include "leveling/publish/local_ceilings.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "leveling/audio/portable_math.h"

namespace quorvane {
namespace {

// Below the limit: what the next coding may bring above it. It doubles with each call, as a coder
// that is started with another level puts other peaks above the limit.
constexpr double kNearDb = 0.05;
constexpr int kMostDoublings = 2;
constexpr double kRoomDb = 0.15;  // below the limit, for each call
/** What is rendered lower than this share of the limit counts as that high. */
constexpr double kLeastRendered = 0.25;

}  // namespace

LocalCeilings::LocalCeilings(double limit_db, double ceiling_db)
    : limit_(portable_amplitude(limit_db)),
      ceiling_(portable_amplitude(ceiling_db)),
      lowest_db_(ceiling_db) {}

void LocalCeilings::lower(const std::vector<double>& coded, const std::vector<double>& rendered) {
    const double wanted = limit_ * portable_amplitude(-kRoomDb * ++calls_);
    const int doublings = std::min(calls_ - 1, kMostDoublings);
    const double near = limit_ * portable_amplitude(-kNearDb * (1 << doublings));
    factors_.resize(std::max({factors_.size(), coded.size(), rendered.size()}), 1.0);
    for (std::size_t block = 0; block < coded.size(); ++block) {
        if (coded[block] <= near) {
            continue;
        }
        const std::size_t begin = block - std::min<std::size_t>(block, 1);
        const std::size_t end = std::min(block + 2, factors_.size());
        const auto rendered_at = [&](std::size_t at) {
            return std::max(at < rendered.size() ? rendered[at] : 0, limit_ * kLeastRendered);
        };
        for (std::size_t at = begin; at < end; ++at) {
            const double peak = std::max(rendered_at(at), rendered_at(block));
            factors_[at] = std::min(factors_[at], peak / ceiling_ * (wanted / coded[block]));
        }
        lowest_db_ = std::min(lowest_db_, 20 * std::log10(factors_[block] * ceiling_));
    }
}

}  // namespace quorvane
