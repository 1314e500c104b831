#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "leveling/publish/true_peak.h"
#include "tests/support/signals.h"

inline double to_db(double value) {
    return 20 * std::log10(value);
}

/** The largest true peak that is found in blocks of so many frames, linear. */
inline double found_peak(const Signal& signal, std::size_t block) {
    quorvane::TruePeakFinder finder(signal.channels, 0);
    Signal padded = signal;
    padded.samples.resize(signal.samples.size() + 64, 0.0);
    const auto frames = static_cast<std::size_t>(padded.frames());
    std::vector<double> peaks(frames);
    for (std::size_t at = 0; at < frames; at += block) {
        finder.find(padded.samples.data() + at * static_cast<std::size_t>(signal.channels),
                    std::min(block, frames - at), peaks.data() + at);
    }
    return *std::max_element(peaks.begin(), peaks.end());
}
