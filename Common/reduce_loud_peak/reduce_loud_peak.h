#pragma once

#include "Common/step/step_errors.h"
#include "Common/units.h"

/** Step 3: tames single loud peaks. */
namespace reduce_loud_peak {

struct Step : step_errors::ToStandardError {
    /** In messages, and in the source name that the log gets. */
    static constexpr const char* kName = "reduce_loud_peak";
};

using ss_empty_command_line_error = step_errors::empty_command_line_error<Step>;
using ss_command_line_error = step_errors::command_line_error<Step>;
using ss_sf_io_error = step_errors::sf_io_error<Step>;
using ss_sf_open_error = step_errors::sf_open_error<Step>;
using ss_sf_openinput_error = step_errors::sf_openinput_error<Step>;
using ss_sf_openoutput_error = step_errors::sf_openoutput_error<Step>;
using ss_sf_unexpected_eof = step_errors::sf_unexpected_eof<Step>;
using ss_sf_format_error = step_errors::sf_format_error<Step>;
using ss_sf_too_many_channels_error = step_errors::sf_too_many_channels_error<Step>;
using ss_sf_input_silent_error = step_errors::sf_input_silent_error<Step>;

using ::ceildiv;

/** Levels a sound file of one or two channels into another of the same format. Throws the above. */
int reduce_loud_peak_tmain(int argc, const char** argv);

/** The same; an ss_error is reported and gives 1. */
int _tmain(int argc, const char** argv);

}  // namespace reduce_loud_peak
