#pragma once

/**
 * Inside a handler, writes the message of the exception that is being handled: an engine error
 * reports itself, any other std::exception's text goes to the standard error stream. What is no
 * std::exception, and a cancellation, is thrown again.
 */
void report_current_failure();
