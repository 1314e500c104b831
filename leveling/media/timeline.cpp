#include "leveling/media/timeline.h"

#include <algorithm>
#include <cstdlib>

#include "leveling/media/handles.h"

namespace quorvane::media {
namespace {

// Half the step of the finest clock in use, so that rounding alone makes no marks.
constexpr std::int64_t kSameTimeNs = 500;

}  // namespace

// Rounded to the nearest.
std::int64_t Timeline::nanoseconds(std::int64_t samples) const {
    return av_rescale_q(samples, {1, rate_}, kNanoseconds);
}

std::int64_t Timeline::samples(std::int64_t nanoseconds) const {
    return av_rescale_q(nanoseconds, kNanoseconds, {1, rate_});
}

// Only a jump is kept: between two marks samples follow each other at the sample rate.
void Timeline::add(std::int64_t sample, std::int64_t time_ns) {
    if (!marks_.empty() && std::llabs(time_of(sample) - time_ns) <= kSameTimeNs) {
        return;
    }
    if (!marks_.empty() && marks_.back().sample == sample) {
        marks_.back().time_ns = time_ns;
        return;
    }
    marks_.push_back({sample, time_ns});
}

std::int64_t Timeline::time_of(std::int64_t sample) const {
    if (marks_.empty()) {
        return nanoseconds(sample);
    }
    auto after = std::upper_bound(marks_.begin(), marks_.end(), sample,
                                  [](std::int64_t s, const Mark& mark) { return s < mark.sample; });
    const Mark& mark = after == marks_.begin() ? *after : *(after - 1);
    return mark.time_ns + nanoseconds(sample - mark.sample);
}

}  // namespace quorvane::media
