#pragma once

#include <functional>
#include <vector>

#include "leveling/preparation/rendering.h"

namespace quorvane {

/** What a limiter holds. */
struct Limit {
    double ceiling = 1;           // linear, of the wave between samples
    std::vector<bool> bins = {};  // of a CurveReader's curve, where a peak may pass it
};

/**
 * All that a CurveReader gives, through a true-peak limiter (TruePeakLimiter). Looking for peaks is
 * most of a limiter's work, so it is done in the given bins alone.
 */
void render_limited(CurveReader& reader,
                    const SF_INFO& recording,
                    const Limit& limit,
                    OutputFile& out,
                    const std::function<void(double)>& progress);

}  // namespace quorvane
