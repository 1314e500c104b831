#include "Common/reduce_loud_peak/reduce_loud_peak.h"

#include "Common/reduce_loud_peak/CommandLine.h"
#include "Common/reduce_loud_peak/ReduceLoudOperation.h"
#include "Common/step/run_entry.h"

namespace reduce_loud_peak {

int reduce_loud_peak_tmain(int argc, const char** argv) {
    ReduceLoudArgs args;
    CCLArgs::GetArgs(argc, argv, args);
    ReduceLoud(args);
    return 0;
}

int _tmain(int argc, const char** argv) {
    return run_entry(reduce_loud_peak_tmain, argc, argv, 1);
}

}  // namespace reduce_loud_peak
