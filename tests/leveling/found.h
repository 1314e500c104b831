#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "leveling/findings/findings.h"
#include "leveling/findings/profiler.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

namespace quorvane {

constexpr int kRate = 16000;

/** What the detectors find in a recording that comes in blocks of so many frames. */
inline FileFacts facts_of(const Signal& signal, std::size_t block = 1024) {
    const std::vector<float> samples(signal.samples.begin(), signal.samples.end());
    Profiler profiler;
    profiler.begin(signal.channels, signal.sample_rate_hz);
    const auto frames = static_cast<std::size_t>(signal.frames());
    for (std::size_t at = 0; at < frames; at += block) {
        profiler.add(samples.data() + at * static_cast<std::size_t>(signal.channels),
                     std::min(block, frames - at));
    }
    FileFacts facts;
    add_findings(profiler.profile(), facts);
    return facts;
}

inline std::vector<std::string> codes_of(const FileFacts& facts) {
    std::vector<std::string> codes;
    for (const Finding& finding : facts.findings) {
        codes.push_back(finding.code);
    }
    return codes;
}

/** Clean speech of one voice, mono, 16 kHz. */
inline const Signal& reading() {
    static const Signal signal = read_sound(std::string(RECORDINGS) + "/reading_16k_mono.flac");
    return signal;
}

}  // namespace quorvane
