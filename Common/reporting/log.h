#pragma once

#include <string>

/**
 * The engine's one channel for messages: writes text and a line end to the standard output and
 * flushes. The source (a path such as "Common/level") and the line say who speaks; they are for a
 * debugger's eyes and are not printed.
 */
void log_msg(const std::string& source, int line, const std::string& text);

/** Logs what went wrong and returns 1, a step's result for failure. */
int log_failure(const std::string& source, int line, const std::string& text);

/** Prints the processor time since start (a reading of the processor clock, in ticks). */
void ShowDuration(unsigned long start);
