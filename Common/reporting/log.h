#pragma once

#include <string>

#include "Common/reporting/failure.h"

/**
 * The engine's one channel for messages: writes text and a line end to the standard output and
 * flushes. The source (a path such as "Common/level") and the line name the caller; they are for a
 * debugger and are not printed. A fixed number as the line (169, 334, 61 and so on) identifies the
 * message: tools find a message by its source and number, so the number stays when the line moves.
 * Newer messages pass __LINE__ instead.
 * A message sink (failure.h), if set, replaces the standard output.
 */
void log_msg(const std::string& source, int line, const std::string& text);

namespace level_engine {

/** Logs an error, stores it as the failure and returns 1, a step's result for failure. */
int log_failure(const std::string& source,
                int line,
                const std::string& text,
                reporting::Kind kind = reporting::Kind::kOther);

}  // namespace level_engine

using level_engine::log_failure;

/** Prints the processor time since start (a reading of the processor clock, in ticks). */
void ShowDuration(unsigned long start);
