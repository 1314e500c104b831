#include "Common/reporting/progress.h"

#include <cmath>
#include <string>

#include "Common/reporting/failure.h"

CProgress::CProgress(double low, double high, ProgressThunk callback, void* context)
    : low_(low), high_(high), callback_(callback), context_(context) {}

void CProgress::show(double fraction) {
    check_cancelled();
    current_ = static_cast<int>(std::floor((high_ - low_) * fraction + low_));
    if (current_ <= last_) {  // said already, or a step that looks back
        return;
    }
    last_ = current_;
    if (callback_ != nullptr) {
        callback_(context_, static_cast<float>(current_) / 100.0F);
    } else {
        reporting::write_words(reporting::Stream::kOutput, "\r" + std::to_string(current_) + "%");
    }
}
