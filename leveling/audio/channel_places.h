#pragma once

#include <sndfile.hh>
#include <vector>

namespace quorvane {

/**
 * The places of a file's channels in their order, libsndfile's names (SF_CHANNEL_MAP_LEFT, ...): as
 * the file gives them, or as its format prescribes. Empty where neither names all of them.
 */
std::vector<int> channel_places(SndfileHandle file);

/** Gives a file that is being written the places of another one's channels, as far as it can. */
void copy_places(const SndfileHandle& from, SndfileHandle& to);

/**
 * The weight of each channel in the loudness (ITU-R BS.1770-4, annex 3, table 4): 0 for an LFE,
 * 1.41 for what stands between 60 and 120 degrees at ear height, else 1. Rear channels stand at 110
 * degrees, but at 135 where there are side channels as well. Empty where no places are known: then
 * the usual order of channels holds.
 */
std::vector<double> loudness_weights(const SndfileHandle& file);

}  // namespace quorvane
