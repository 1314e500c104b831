#pragma once

namespace level_engine {

/**
 * Inside a handler, notes the failure that is being handled and writes a message: an ss_error
 * reports itself, of any other std::exception the what() goes to the standard error stream, without
 * a line end. Errors outside the ss_error family say little there; reporting::first_failure has
 * their cause. What is no
 * std::exception, and a cancellation, is thrown again.
 */
void report_current_failure();

}  // namespace level_engine

using level_engine::report_current_failure;
