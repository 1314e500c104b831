#pragma once

/*
 * What a run shares with its steps: set by the driver at its entry, read by every progress display
 * and every cancel check. The steps know nothing else of the run that they are part of.
 */

/** A run's progress callback: the context given with it and the fraction done, 0.0 to 1.0. */
using ProgressThunk = int (*)(void* context, float fraction);

extern ProgressThunk gProgressThunk;  // the caller's progress callback; may be null
extern void* gProcessorPtr;           // its context
extern unsigned long gStart;          // processor clock at entry, with kShowDuration

/**
 * Non-zero: this run and all later ones of the process end as soon as possible. The driver sets it
 * when it catches a cancellation that the run did not ask for itself. Others may set it at any
 * moment; the engine's check points read it with an atomic load.
 */
extern int gCancelled;

constexpr bool kShowDuration = false;      // print settings and elapsed times
constexpr bool kSkipConditioning = false;  // level the input as it is, without steps 1 to 4
