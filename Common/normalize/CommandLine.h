#pragma once

#include <string>

namespace normalize {

/** The settings of the step. */
struct NormalizeArgs {
    double noise_floor_db = -44.0;  // bins below it neither count nor are limited
    double peak_output_db = -1.0;   // the ceiling, of samples (not between them)
    double target_level_db = -18.0;
    double fit_tolerance_db = 0.01;
    int attack_ms = 2000;  // how long before a limited bin the gain begins to fall
    int release_ms = 2000;
    int bin_size_ms = 50;
    int bit_depth = 0;  // 0 keeps the input's encoding
    std::string sound_file_in;
    std::string sound_file_out;
};

/** The step's command line. */
class CCLArgs {
  public:
    /** Throws ss_command_line_error after logging the help or what is wrong. */
    void GetArgs(int argc, const char** argv);

    /** Prints the levels on the standard output, in dB and as factors. */
    void ShowArgs() const;

    NormalizeArgs args;
    std::string options_file;
};

/** Parses and converts the settings of a command line; throws like CCLArgs::GetArgs. */
NormalizeArgs GetArgs(int argc, const char** argv);

}  // namespace normalize
