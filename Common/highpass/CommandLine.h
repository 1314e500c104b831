#pragma once

#include <string>

namespace highpass {

/** The settings of the step. */
class HighpassArgs {
  public:
    /** Throws ss_empty_command_line_error, ss_command_line_error. */
    void GetArgs(int argc, const char** argv);

    /**
     * Derives the centre frequency and the bandwidth from the two cutoffs. The names promise a band
     * between them; what is built is one high-pass at the centre, 62.5 Hz by default, whose corner
     * is as soft as the band is wide. Voices were tuned to that: it stays.
     */
    void ConvertArgs();

    /** Prints the settings on the standard output, where the build shows durations. */
    void ShowArgs() const;

    double low_hz = 25.0;
    double high_hz = 100.0;
    double center_hz = 0.0;
    double bandwidth_octaves = 0.0;
    std::string sound_file_in;
    std::string sound_file_out;
    std::string options_file;
    int verbosity = 0;  // from 1 on the settings are shown, where the build shows durations
};

}  // namespace highpass
