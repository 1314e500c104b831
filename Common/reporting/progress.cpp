#include "Common/reporting/progress.h"

#include <cmath>
#include <iostream>

#include "Common/ss_util.h"

void check_cancelled() {
    if (gCancelled != 0) {
        throw ss_cancel_exception();
    }
}

CProgress::CProgress(double low, double high, LevelProgress callback, void* context)
    : low_(low), high_(high), callback_(callback), context_(context) {}

void CProgress::show(double fraction) {
    check_cancelled();
    current_ = static_cast<int>(std::floor((high_ - low_) * fraction + low_));
    if (current_ <= last_) {
        return;
    }
    last_ = current_;
    if (callback_ != nullptr) {
        callback_(context_, static_cast<float>(current_) / 100.0F);
    } else {
        std::cout << "\r" << current_ << "%" << std::flush;
    }
}
