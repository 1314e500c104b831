#include "Common/reduce_loud_peak/ReduceLoudOperation.h"

#include <iostream>

namespace reduce_loud_peak {

void PeakRule::warn(const char* text) {
    std::cerr << text << std::endl;
}

ReduceLoudOperation::ReduceLoudOperation(const ReduceLoudArgs& args)
    : LoudReduction<PeakRule>(args), verbosity_(args.verbosity) {}

void ReduceLoudOperation::Log(const std::string& text) const {
    if (verbosity_ > 0) {
        std::cout << text;
    }
}

void ReduceLoud(const ReduceLoudArgs& args) {
    ReduceLoudOperation operation(args);
    operation.Execute();
}

}  // namespace reduce_loud_peak
