#pragma once

#include <string>

#include "Common/reporting/failure.h"

/**
 * The engine's one channel for messages: writes text and a line end to the standard output and
 * flushes. The source (a path such as "Common/level") and the line say who speaks; they are for a
 * debugger's eyes and are not printed. Where a call gives a fixed number as its line (169, 334, 61
 * and so on), the number is the message's mark: tools that know the engine find a message by its
 * source and mark, so that it stays when the line moves. Messages without such a past give
 * __LINE__.
 */
void log_msg(const std::string& source, int line, const std::string& text);

namespace level_engine {

/** Logs what went wrong, notes it as a failure and returns 1, a step's result for failure. */
int log_failure(const std::string& source,
                int line,
                const std::string& text,
                reporting::Kind kind = reporting::Kind::kOther);

}  // namespace level_engine

using level_engine::log_failure;

/** Prints the processor time since start (a reading of the processor clock, in ticks). */
void ShowDuration(unsigned long start);
