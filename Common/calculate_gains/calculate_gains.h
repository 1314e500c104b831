#pragma once

/** Step 7: the gain that brings each segment to the recording's average level. */
namespace calculate_gains {

/**
 * Reads a sound file and its cue list, measures each segment's gated level, and writes two text
 * files: the levels, a line per segment in dB with two decimals (-200.00 for a segment without a
 * sample above the gate), and the gains, a line per bin, linear with six significant digits.
 *
 * A segment of -200 is left out of the mean and of the count of levels read back; the gains of as
 * many segments at the end of the file are then missing. A cue outside the recording counts as it
 * stands, up to an hour of usual bins from it, and is noted as a defect.
 *
 * Returns 0, or 1 after logging what is wrong. Throws ss_alloc_error.
 */
int calc_rms_floor_tmain(int argc, const char** argv);

/** The same; an ss_alloc_error is logged and gives 1. */
int _tmain(int argc, const char** argv);

}  // namespace calculate_gains
