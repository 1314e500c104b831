#pragma once

#include <exception>

/** Ends a cancelled run. Not an ss_error: it passes through the steps' handlers to the driver. */
class ss_cancel_exception : public std::exception {};

/** Throws ss_cancel_exception while the cancel flag is set. */
void check_cancelled();
