#pragma once

#include "Common/reporting/failure.h"
#include "Common/step/step_errors.h"
#include "Common/stream/sound_writer.h"

namespace level_engine {

/**
 * Throws the step's ss_sf_io_error. That error's own message names neither file nor cause, so they
 * are noted here, where both are known.
 */
template <class Step>
[[noreturn]] void fail_write(const WriteFailure& failure) {
    reporting::note_failure(reporting::Kind::kSystem,
                            "Error writing to " + failure.path + ": " + failure.reason);
    throw step_errors::sf_io_error<Step>(failure.path);
}

}  // namespace level_engine

using level_engine::fail_write;
