#pragma once

#include "Common/step/step_errors.h"

/** Step 2: lowers the background between phrases. */
namespace gate {

struct Step : step_errors::ToStandardError {
    static constexpr const char* kName = "gate";
};

using ss_empty_command_line_error = step_errors::empty_command_line_error<Step>;
using ss_command_line_error = step_errors::command_line_error<Step>;
using ss_sf_io_error = step_errors::sf_io_error<Step>;
using ss_sf_open_error = step_errors::sf_open_error<Step>;
using ss_sf_openinput_error = step_errors::sf_openinput_error<Step>;
using ss_sf_openoutput_error = step_errors::sf_openoutput_error<Step>;
using ss_sf_write_error = step_errors::sf_write_error<Step>;
using ss_sf_seek_error = step_errors::sf_seek_error<Step>;
using ss_sf_unexpected_eof = step_errors::sf_unexpected_eof<Step>;
using ss_sf_format_error = step_errors::sf_format_error<Step>;
using ss_sf_too_many_channels_error = step_errors::sf_too_many_channels_error<Step>;

/**
 * Gates a sound file of one or two channels into another of the same format; a file shorter than
 * the anticipation is copied. Returns 0, or what copy_file returned. Throws the errors above.
 */
int gate_tmain(int argc, const char** argv);

/** The same; an ss_error is reported and gives 1. ss_sf_write_error passes on. */
int _tmain(int argc, const char** argv);

}  // namespace gate
