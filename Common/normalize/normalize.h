#pragma once

#include "Common/step/step_errors.h"
#include "Common/units.h"

/** Step 10: brings the leveled audio to the target level under a peak ceiling. */
namespace normalize {

struct Step : step_errors::ToLog {
    static constexpr const char* kName = "normalize";
};

using ss_command_line_error = step_errors::command_line_error<Step>;
using ss_sf_io_error = step_errors::sf_io_error<Step>;
using ss_sf_open_error = step_errors::sf_open_error<Step>;
using ss_sf_openinput_error = step_errors::sf_openinput_error<Step>;
using ss_sf_unexpected_eof = step_errors::sf_unexpected_eof<Step>;
using ss_sf_format_error = step_errors::sf_format_error<Step>;
using ss_sf_too_many_channels_error = step_errors::sf_too_many_channels_error<Step>;
using ss_sf_input_silent_error = step_errors::sf_input_silent_error<Step>;

/**
 * The format of the output: the input's, or the input's container with signed integers of bit_depth
 * bits (8, 16, 24 or 32; any other leaves the encoding empty, which cannot be written).
 */
int output_format(int input_format, int bit_depth);

/** What the step did, in plain numbers. */
struct FitResult {
    double level_db = 0.0;          // of the input's bins above the noise floor
    double target_db = 0.0;         // the target of the last try
    double error_db = 0.0;          // the last try's level less its target
    double gain = 1.0;              // linear, the common gain of the last try
    bool within_tolerance = false;  // false: the peaks left the target out of reach
    double lowered_by_db = 0.0;     // what had to be taken off the target
    long long held_samples = 0;     // held at full scale, above which the encoding would wrap
};

/** What to do where the peaks leave the target out of reach or a sample would pass full scale. */
enum class FitFailure {
    kStand,       // the last try stands
    kLowerTarget  // tries again with a target 0.5 dB lower, down to the first that fits
};

/** Returns 0, or 1 after reporting an ss_error. Other exceptions pass on. */
int _tmain(int argc, const char** argv);

/** The same; fit receives what the step did when it returns 0. */
int run_normalize(int argc,
                  const char** argv,
                  FitResult& fit,
                  FitFailure on_failure = FitFailure::kStand);

using ::ceildiv;

}  // namespace normalize
