#pragma once

#include <string>

namespace normalize {

/** The settings of the step. */
struct NormalizeArgs {
    double noise_floor_db = -44.0;
    double peak_output_db = -1.0;
    double target_level_db = -18.0;
    double fit_tolerance_db = 0.01;
    int attack_ms = 2000;
    int release_ms = 2000;
    int bin_size_ms = 50;
    int bit_depth = 0;  // 0 keeps the input's encoding
    std::string sound_file_in;
    std::string sound_file_out;
};

class CCLArgs {
  public:
    /** Throws ss_command_line_error after logging the help or what is wrong. */
    void GetArgs(int argc, const char** argv);

    void ShowArgs() const;

    NormalizeArgs args;
    std::string options_file;
};

NormalizeArgs GetArgs(int argc, const char** argv);

}  // namespace normalize
