#include "leveling/preparation/timeline.h"

#include <algorithm>
#include <utility>

namespace quorvane {

Timeline::Timeline(long long frames, std::vector<Stretch> left_out)
    : frames_(frames), left_out_(std::move(left_out)) {
    long long from = 0;
    for (const Stretch& stretch : left_out_) {
        if (stretch.begin > from) {
            kept_.push_back({from, stretch.begin});
        }
        from = stretch.end;
    }
    if (from < frames_) {
        kept_.push_back({from, frames_});
    }
}

long long Timeline::kept_frames() const {
    long long sum = 0;
    for (const Stretch& stretch : kept_) {
        sum += stretch.length();
    }
    return sum;
}

double Timeline::in_recording(double copy_frame) const {
    double left = copy_frame;
    for (const Stretch& stretch : kept_) {
        const auto length = static_cast<double>(stretch.length());
        if (left < length) {
            return static_cast<double>(stretch.begin) + left;
        }
        left -= length;
    }
    return static_cast<double>(frames_);
}

std::vector<Stretch> in_frames(const std::vector<Stretch>& bins,
                               long long bin_frames,
                               long long frames) {
    std::vector<Stretch> result;
    result.reserve(bins.size());
    for (const Stretch& stretch : bins) {
        result.push_back({stretch.begin * bin_frames, std::min(stretch.end * bin_frames, frames)});
    }
    return result;
}

}  // namespace quorvane
