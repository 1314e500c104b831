#pragma once

#include <optional>
#include <string>

#include "leveling/conversation/mix.h"
#include "leveling/facts/run_facts.h"

namespace quorvane {

/** What a mix is to be. */
struct MixOrder {
    std::string sum;  // of the tracks, as floats that nothing has clipped
    MixFormat format;
    std::string extension;    // of the mix, without a point
    std::string destination;  // a word of --for; empty: none
    std::string scratch;      // a folder
};

struct MadeMix {
    std::string path;      // in the scratch folder
    std::string readable;  // the same audio in a file that libsndfile reads
    std::optional<Publishing> publishing;
};

/** Throws FileError where tracks of this sample rate cannot be mixed to the format. */
void require_mix_rate(const MixFormat& format, int sample_rate_hz);

/**
 * Brings the sum to its delivery target, or else below the ceiling of the true peak, and codes it.
 * Throws std::runtime_error with the cause.
 */
MadeMix make_mix(const MixOrder& order);

}  // namespace quorvane
