#pragma once

/*
 * What a run shares with its steps: set by the driver at its entry, read by every progress display
 * and every cancel check. A run uses one thread for its steps, and each thread has its own values,
 * so several runs can work side by side.
 */

/** A run's progress callback: the context given with it and the fraction done, 0.0 to 1.0. */
using ProgressThunk = int (*)(void* context, float fraction);

extern thread_local ProgressThunk gProgressThunk;  // the caller's progress callback; may be null
extern thread_local void* gProcessorPtr;           // its context
extern thread_local unsigned long gStart;          // processor clock at entry, with kShowDuration

/**
 * Non-zero: all running and later runs of the process end as soon as possible. The driver sets it
 * when it catches a cancellation that does not come from the run's own flag. Other code may set it
 * at any time; the engine's check points read it with an atomic load.
 */
extern int gCancelled;

constexpr bool kShowDuration = false;      // print settings and elapsed times
constexpr bool kSkipConditioning = false;  // level the input as it is, without steps 1 to 4
