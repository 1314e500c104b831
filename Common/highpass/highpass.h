#pragma once

#include "Common/step/step_errors.h"

/** Step 1: takes the rumble out with one second-order high-pass filter per channel. */
namespace highpass {

struct Step : step_errors::ToStandardError {
    static constexpr const char* kName = "highpass";
};

using ss_empty_command_line_error = step_errors::empty_command_line_error<Step>;
using ss_command_line_error = step_errors::command_line_error<Step>;
using ss_sf_format_error = step_errors::sf_format_error<Step>;
using ss_sf_too_many_channels_error = step_errors::sf_too_many_channels_error<Step>;

/**
 * Filters a sound file of one or two channels into another of the same format and clips it to full
 * scale. Returns the RMS level in dB of the louder filtered channel, or 0.0 for silence and when
 * the filter cannot be built. Throws the errors above, and std::runtime_error for files that cannot
 * be opened or written.
 */
double highpass_tmain(int argc, const char** argv);

/** The same; an ss_error is reported and gives 0.0, which no level below full scale is. */
double _tmain(int argc, const char** argv);

}  // namespace highpass
