#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace quorvane {

/**
 * Finds tracks of one conversation among recordings of equal length: sets of places in the list,
 * two or more in each. Such tracks hold the same voices, each louder on its own track and some
 * milliseconds later on the others. Episodes of a series have nothing in common, and two copies of
 * one recording are alike in level all the time.
 *
 * Pieces that are spread over the recordings are compared, so that it takes no longer for long
 * ones. What cannot be read is in no set; nothing is thrown.
 */
std::vector<std::vector<std::size_t>> find_conversations(
    const std::vector<std::string>& recordings);

}  // namespace quorvane
