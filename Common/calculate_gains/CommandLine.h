#pragma once

#include <string>

namespace calculate_gains {

/** The settings of the step. */
class CCLArgs {
  public:
    /** Returns 0, or 1 after writing the help or what is wrong. */
    int GetArgs(int argc, const char** argv);

    bool has_cue_list = false;
    bool has_gain_limit = false;
    double gain_limit_db = 0.0;      // not negative
    double buffer_length_s = 0.005;  // of the noise gate
    double noise_threshold = 0.006;  // linear
    int bin_size_ms = 50;
    std::string options_file;
    std::string wave_file;
    std::string cue_list_file;
    std::string gains_file;
    std::string rms_file;
};

}  // namespace calculate_gains
