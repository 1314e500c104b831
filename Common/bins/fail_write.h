#pragma once

#include "Common/reporting/failure.h"
#include "Common/step/step_errors.h"
#include "Common/stream/sound_writer.h"

/**
 * Writes file and cause to the standard error stream, then throws the step's ss_sf_io_error. That
 * error's own message names neither, so they are said here, where both are known.
 */
template <class Step>
[[noreturn]] void fail_write(const WriteFailure& failure) {
    reporting::say_failure(reporting::Kind::kSystem,
                           "Error writing to " + failure.path + ": " + failure.reason);
    throw step_errors::sf_io_error<Step>(failure.path);
}
