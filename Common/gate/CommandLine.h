#pragma once

#include <sndfile.h>

#include <string>

namespace gate {

/** The settings of the step, as given and converted to the units of the gate. */
class GateArgs {
  public:
    /** Throws ss_empty_command_line_error, ss_command_line_error. */
    void GetArgs(int argc, const char** argv);

    /** Converts the settings for the file's sample rate. */
    void ConvertArgs(const SF_INFO& info);

    /** There for every step; this one's settings have never been shown. */
    void ShowArgs() const {}

    double attenuation_max_db = -12.0;  // of the closed gate
    double attenuation_min_db = 0.0;    // of the open one
    int attack_ms = 100;
    int release_ms = 250;
    int hold_ms = 250;
    double threshold_attack_db = -39.0;
    double threshold_release_db = -39.0;
    int anticipate_ms = 250;  // how far the gate looks ahead of the sample that it gates
    int meter_ms = 5;         // over which an energy is taken
    std::string sound_file_in;
    std::string sound_file_out;
    std::string options_file;
    int verbosity = 0;

    double closed_gain = 0.0;  // linear
    double open_gain = 0.0;
    int attack_samples = 0;  // of one channel
    int release_samples = 0;
    int hold_samples = 0;
    int anticipate_samples = 0;

    // The option "gate__buffer_size" lands here, where ConvertArgs overwrites it: the meter is
    // always meter_ms long, and settings files that name the option are still accepted.
    int meter_samples = 0;

    double attack_energy = 0.0;  // thresholds as the energy of a full meter
    double release_energy = 0.0;
};

}  // namespace gate
