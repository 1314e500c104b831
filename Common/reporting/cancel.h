#pragma once

#include <exception>

/** Ends a cancelled run. Not an ss_error: it passes through the steps' handlers to the driver. */
class ss_cancel_exception : public std::exception {};

namespace level_engine {

/**
 * Throws ss_cancel_exception while gCancelled is set, a request stands, or the caller of the run on
 * this thread asks.
 */
void check_cancelled();

/** Asks all running and later runs to end; for any thread and for signal handlers. */
void request_cancel();

/** Sets gCancelled, or clears it together with a request; for the same callers. */
void set_cancelled(bool cancelled);

/** Returns non-zero when the run under way, and no other, is to end. */
using AsksToCancel = int (*)(void* context);

/** Every check point on this thread calls asks; null: none does. */
void ask_before_going_on(AsksToCancel asks, void* context);

/** Whether that is why the run on this thread ended; the answer is given once. */
bool take_run_asked();

}  // namespace level_engine

using level_engine::ask_before_going_on;
using level_engine::AsksToCancel;
using level_engine::check_cancelled;
using level_engine::request_cancel;
using level_engine::set_cancelled;
using level_engine::take_run_asked;
