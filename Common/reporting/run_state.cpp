#include "Common/reporting/run_state.h"

#include "Common/reporting/cancel.h"

// A step that runs by itself finds these values: no callback, not cancelled.
thread_local ProgressThunk gProgressThunk = nullptr;
thread_local void* gProcessorPtr = nullptr;
thread_local unsigned long gStart = 0;
int gCancelled = 0;

namespace level_engine {

namespace {

// Apart from gCancelled, which only the driver sets. A signal handler may write it.
int requested = 0;

// Of the run on this thread.
thread_local AsksToCancel asks = nullptr;
thread_local void* asks_context = nullptr;
thread_local bool run_asked = false;

static_assert(__atomic_always_lock_free(sizeof(int), nullptr),
              "a signal handler must not meet a lock");

}  // namespace

void check_cancelled() {
    if (__atomic_load_n(&gCancelled, __ATOMIC_RELAXED) != 0 ||
        __atomic_load_n(&requested, __ATOMIC_RELAXED) != 0) {
        throw ss_cancel_exception();
    }
    if (asks != nullptr && asks(asks_context) != 0) {
        run_asked = true;
        throw ss_cancel_exception();
    }
}

void request_cancel() {
    __atomic_store_n(&requested, 1, __ATOMIC_RELAXED);
}

void mark_cancelled() {
    __atomic_store_n(&gCancelled, 1, __ATOMIC_RELAXED);
}

void clear_cancel() {
    __atomic_store_n(&gCancelled, 0, __ATOMIC_RELAXED);
    __atomic_store_n(&requested, 0, __ATOMIC_RELAXED);
}

void ask_before_going_on(AsksToCancel new_asks, void* context) {
    asks = new_asks;
    asks_context = context;
}

bool take_run_asked() {
    const bool asked = run_asked;
    run_asked = false;
    return asked;
}

}  // namespace level_engine
