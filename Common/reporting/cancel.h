#pragma once

#include <exception>

/** Ends a cancelled run. Not an ss_error: it passes through the steps' handlers to the driver. */
class ss_cancel_exception : public std::exception {};

namespace level_engine {

/**
 * Throws ss_cancel_exception while gCancelled is set, after request_cancel, or when the function of
 * ask_before_going_on returns non-zero.
 */
void check_cancelled();

/** Ends all running and later runs. Safe in any thread and in signal handlers. */
void request_cancel();

/** Sets gCancelled. Safe in the same places. */
void mark_cancelled();

/** Clears gCancelled and the request. Safe in the same places. */
void clear_cancel();

/** Returns non-zero to end the run on this thread, and only this one. */
using AsksToCancel = int (*)(void* context);

/** Sets a function that every check point on this thread calls; null removes it. */
void ask_before_going_on(AsksToCancel asks, void* context);

/** Whether that function ended the run on this thread. Resets the answer. */
bool take_run_asked();

}  // namespace level_engine

using level_engine::ask_before_going_on;
using level_engine::AsksToCancel;
using level_engine::check_cancelled;
using level_engine::clear_cancel;
using level_engine::mark_cancelled;
using level_engine::request_cancel;
using level_engine::take_run_asked;
