#pragma once

#include <iosfwd>
#include <string>

/**
 * The segmentation engine: cuts a series of levels into segments of steady level by dynamic
 * programming over prefix sums, chunk by chunk.
 */
namespace segment {

/**
 * argv: the segmentation's own command line. input: the values as text, each followed by white
 * space. fFit receives a line per value, the mean level of its segment; fBreak a line per
 * breakpoint, the index of a segment's first value, counted from 0 over all chunks. Index 0 is
 * never written; the start of every chunk after the first always is.
 *
 * Returns 0, or 1 after logging what is wrong. Throws ss_alloc_error, read_sums_error.
 */
int segment_tmain(int argc,
                  const char** argv,
                  const std::string& input,
                  std::ostream& fFit,
                  std::ostream& fBreak);

/** The same; errors are logged and give 1. A broken assertion ends the process. */
int _tmain(
    int argc, const char** argv, std::string input, std::ostream& fFit, std::ostream& fBreak);

}  // namespace segment
