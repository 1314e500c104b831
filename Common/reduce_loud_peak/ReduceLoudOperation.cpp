#include "Common/reduce_loud_peak/ReduceLoudOperation.h"

#include "Common/reporting/failure.h"

namespace reduce_loud_peak {

void PeakRule::warn(const char* text) {
    reporting::write_words(reporting::Stream::kError, std::string(text) + "\n");
}

ReduceLoudOperation::ReduceLoudOperation(const ReduceLoudArgs& args)
    : LoudReduction<PeakRule>(args), verbosity_(args.verbosity) {}

void ReduceLoudOperation::Log(const std::string& text) const {
    if (verbosity_ > 0) {
        reporting::write_words(reporting::Stream::kOutput, text);
    }
}

void ReduceLoud(const ReduceLoudArgs& args) {
    ReduceLoudOperation operation(args);
    operation.Execute();
}

}  // namespace reduce_loud_peak
