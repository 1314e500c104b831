#pragma once

/**
 * Step 5: measures the level of every bin. Where the run has the bins of the input from its writing
 * (MeasuredRecordings), they are taken and the input is not read again.
 */
namespace calc_rms {

/**
 * Writes a text file with one line per bin of the input, in time order: the RMS over all samples of
 * the bin, channels together, in dB with 12 decimals, never below -200. Returns 0, or 1 when a file
 * cannot be opened or a bin is shorter than a frame. Throws ss_alloc_error.
 */
int _tmain(int argc, const char** argv);

}  // namespace calc_rms
