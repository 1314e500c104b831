#pragma once

#include <csignal>

#include "Common/level.h"

/*
 * What a run shares with its steps. Owned by the driver (level.cpp), set by levelMain, read by
 * every progress display and cancel check.
 */
extern LevelProgress gProgressThunk;           // the caller's progress callback; may be null
extern void* gProcessorPtr;                    // its context
extern unsigned long gStart;                   // processor clock at entry, with kShowDuration
extern volatile std::sig_atomic_t gCancelled;  // non-zero: end as soon as possible

constexpr bool kShowDuration = false;      // print settings and elapsed times
constexpr bool kSkipConditioning = false;  // level the input as it is, without steps 1 to 4
