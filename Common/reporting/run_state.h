#pragma once

#include <atomic>

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
 * Non-zero: end as soon as possible. Another thread or a signal handler may set it at any moment,
 * so it is an atomic one that needs no lock.
 */
extern std::atomic<int> gCancelled;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler must not meet a lock");

constexpr bool kShowDuration = false;      // print settings and elapsed times
constexpr bool kSkipConditioning = false;  // level the input as it is, without steps 1 to 4
