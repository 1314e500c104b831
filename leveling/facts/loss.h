#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/** A stretch of a recording that could not be decoded; both in frames of the decoded sound. */
struct Gap {
    std::int64_t at = 0;
    std::int64_t frames = 0;
};

/** What of a recording is lost. */
struct Loss {
    std::vector<Gap> gaps;     // silence stands for them, so that what follows keeps its time
    std::int64_t missing = 0;  // frames that the file promises behind the last one

    /** Adds a gap behind the others, or lengthens the last one where it goes on. */
    void add(std::int64_t at, std::int64_t frames);

    std::int64_t frames() const;
};

/** Up to this share of a recording may be lost without a word of the user's. */
constexpr double kMostLost = 0.05;

/** Which losses fail a file; others become a note. */
enum class LossLimit { None, Small, Any };

/**
 * Adds a note about a loss, if there is one, to the facts, whose frames hold the silence in its
 * gaps and whose sample rate is known. Throws FileError when the limit does not allow the loss.
 */
void judge_loss(const Loss& loss, LossLimit limit, FileFacts& facts);

}  // namespace quorvane
