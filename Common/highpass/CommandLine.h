#pragma once

#include <string>

namespace highpass {

/** The settings of the step. */
class HighpassArgs {
  public:
    /** Throws ss_empty_command_line_error, ss_command_line_error. */
    void GetArgs(int argc, const char** argv);

    /** Derives the centre frequency and the bandwidth from the two cutoffs. */
    void ConvertArgs();

    void ShowArgs() const;

    double low_hz = 25.0;
    double high_hz = 100.0;
    double center_hz = 0.0;
    double bandwidth_octaves = 0.0;
    std::string sound_file_in;
    std::string sound_file_out;
    std::string options_file;
    int verbosity = 0;
};

}  // namespace highpass
