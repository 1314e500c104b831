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
 * Returns 0, or 1 after logging what is wrong.
 *
 * The cue list is a text file: the bytes 0x03 and 0x20, a line of header, "Prefix=", the sample
 * rate, and for each cue, in ascending order, its position in frames, a line "0" and three empty
 * lines.
 */
int wrap_segment(std::string rmsFile,
                 std::string label,
                 std::string segmentOptionsFile,
                 std::string cueListFile,
                 double quietDelta,
                 int sampleRate,
                 double binSeconds);

}  // namespace wrap_segment
