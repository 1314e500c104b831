#pragma once

namespace reporting {

/**
 * Stores the system's error number (errno) of a write that failed on this thread, if it is the
 * first since forget_write_error. The sound library's own texts do not keep it.
 */
void note_write_error(int error);

/** The first that was stored, 0 without one. */
int first_write_error();

/** Call it before the work whose errors count. */
void forget_write_error();

}  // namespace reporting
