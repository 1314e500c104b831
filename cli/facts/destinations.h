#pragma once

#include <string>
#include <vector>

#include "cli/facts/run_facts.h"

namespace cli {

/** How a file stands to what one usual destination asks for. */
struct DestinationCheck {
    std::string name;
    std::string asks;
    bool met = false;
    std::vector<std::string> misses;  // "2.4 LU too quiet"; empty when met
    bool other_channels = false;      // the destination is for another number of channels
};

/**
 * One check for each usual destination: podcasts in stereo and mono, EBU R128 broadcast,
 * audiobooks.
 */
std::vector<DestinationCheck> check_destinations(const Loudness& loudness, int channels);

}  // namespace cli
