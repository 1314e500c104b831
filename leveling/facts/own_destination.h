#pragma once

#include <optional>
#include <string>

#include "leveling/facts/destinations.h"

namespace quorvane {

/** What own_destination() made of a word: one of the two is there, unless the word is not meant
 * for it. */
struct OwnDestination {
    std::optional<Destination> destination;
    std::string problem;  // "lufs takes a number from -40 to -5, not '-50'"
};

/**
 * A delivery target of one's own, as a word of --for: "lufs=-18:tp=-1.5" is -18 LUFS within 0.5 LU
 * and a true peak of -1.5 dBTP at most. The destination's word has its numbers in their shortest
 * form, so that "lufs=-18.0:tp=-1.50" is the same one. A word that does not begin with "lufs" or
 * "tp" is none.
 */
OwnDestination own_destination(const std::string& word);

}  // namespace quorvane
