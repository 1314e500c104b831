#include "Common/reporting/run_state.h"

#include "Common/reporting/cancel.h"

// A step that runs by itself finds these values: no callback, not cancelled.
ProgressThunk gProgressThunk = nullptr;
void* gProcessorPtr = nullptr;
unsigned long gStart = 0;
std::atomic<int> gCancelled{0};

void check_cancelled() {
    if (gCancelled != 0) {
        throw ss_cancel_exception();
    }
}
