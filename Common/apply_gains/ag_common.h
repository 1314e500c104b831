#pragma once

#include <string>

/**
 * Step 9: multiplies the audio by the smoothed gain curve. Where the run has the peaks of the
 * input's bins from its writing (MeasuredRecordings), the first pass reads few bins only.
 */
namespace apply_gains {

/**
 * Reads one linear gain per block from gainsPath, appends a last gain of 0, and writes the input
 * with the gain running linearly from each block's value to the next one's, scaled so that the
 * largest absolute sample is 1.0. Audio beyond the last block is cut off; without any gain the
 * output holds no audio.
 *
 * blockMilliseconds: length of a block, which in frames is truncated.
 * Blocks shorter than a frame give no audio either, which is noted as a defect. Throws
 * printable_err, and std::runtime_error for a negative block length or an output that is an input.
 */
void ApplyGains(int blockMilliseconds,
                std::string gainsPath,
                std::string inputPath,
                std::string outputPath);

}  // namespace apply_gains
