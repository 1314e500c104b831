#include "Common/reporting/run_state.h"
#include "tests/support/fixtures.h"

ProgressRecorder::ProgressRecorder() {
    gProgressThunk = callback;
    gProcessorPtr = this;
}

ProgressRecorder::~ProgressRecorder() {
    gProgressThunk = nullptr;
    gProcessorPtr = nullptr;
}

int ProgressRecorder::callback(void* context, float fraction) {
    static_cast<ProgressRecorder*>(context)->fractions_.push_back(fraction);
    return 0;
}
