#pragma once

#include <string>

/** Step 6: finds where the recording's level changes. */
namespace wrap_segment {

/**
 * Reads one level in dB per bin from rmsFile, leaves out the bins that are more than -quietDelta dB
 * below the average level, has the segmentation engine find the breakpoints among the rest and
 * writes them as a cue list. label and segmentOptionsFile are not used.
 *
 * quietDelta: dB, at most 0. sampleRate: Hz. binSeconds: length of a bin.
 * Returns 0, or 1 after logging what is wrong. A cue list that cannot be opened is noted as a
 * defect and gives 0.
 */
int wrap_segment(std::string rmsFile,
                 std::string label,
                 std::string segmentOptionsFile,
                 std::string cueListFile,
                 double quietDelta,
                 int sampleRate,
                 double binSeconds);

}  // namespace wrap_segment
