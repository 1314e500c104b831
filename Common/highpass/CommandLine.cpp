#include "Common/highpass/CommandLine.h"

#include <cmath>
#include <cstdio>
#include <iostream>

#include "Common/highpass/highpass.h"
#include "Common/reporting/run_state.h"
#include "Common/step/conditioning_options.h"

namespace highpass {

void HighpassArgs::GetArgs(int argc, const char** argv) {
    if (argc < 2) {
        throw ss_empty_command_line_error();
    }
    StepOptions parser("highpass", options_file);
    parser.option("highpass__low,l", low_hz, "low frequency cutoff (Hz)")
        .option("highpass__high,g", high_hz, "high frequency cutoff (Hz)")
        .option("highpass__verbosity,v", verbosity, "verbosity level");
    parse_conditioning_options<Step>(parser, argc, argv, sound_file_in, sound_file_out);
}

void HighpassArgs::ConvertArgs() {
    // The arithmetic mean, and not the geometric one that filter designs use for a band.
    center_hz = (low_hz + high_hz) * 0.5;
    bandwidth_octaves = std::log(high_hz / low_hz) / std::log(2.0);
}

void HighpassArgs::ShowArgs() const {
    if (!kShowDuration) {
        return;
    }
    // A column for a person's eyes; nothing reads it back.
    char cutoffs[128];
    std::snprintf(cutoffs, sizeof cutoffs, "Low cutoff:   %.2lf Hz\nHigh cutoff:  %.2lf Hz\n",
                  low_hz, high_hz);
    std::cout << "Options file:      " << options_file << "\n"
              << cutoffs << "Verbosity:         " << verbosity << "\n"
              << "Sound file input:  " << sound_file_in << "\n"
              << "Sound file output: " << sound_file_out << std::endl;
}

}  // namespace highpass
