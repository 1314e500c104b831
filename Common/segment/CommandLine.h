#pragma once

#include <cstdint>
#include <string>

namespace segment {

/** The settings of the segmentation. */
class CCLArgs {
  public:
    /** Returns 0, or 1 after logging the help or what is wrong. */
    int GetArgs(int argc, const char** argv);

    /**
     * Lowers the maximum number of breakpoints (0: none set) to what segments of the minimum length
     * leave room for in a chunk. 16-bit arithmetic throughout.
     */
    void UpdateNMaxBreakpoints();

    void ShowArgs() const {}

    double tolerance = 0.0;        // of the fit, in the unit of the values; 0: none
    std::uint16_t chunk_size = 0;  // values; 0: no chunks
    std::uint16_t max_breakpoints = 0;
    std::uint16_t min_segment_length = 1;  // values
    std::string cost_function = "SSD0";
    std::string options_file;
};

}  // namespace segment
