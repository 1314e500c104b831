#include "Common/reduce_loud/reduce_loud.h"

#include "Common/reduce_loud/CommandLine.h"
#include "Common/reduce_loud/ReduceLoudOperation.h"
#include "Common/step/run_entry.h"

namespace reduce_loud {

int reduce_loud_tmain(int argc, const char** argv) {
    ReduceLoudArgs args;
    CCLArgs::GetArgs(argc, argv, args);
    ReduceLoud(args);
    return 0;
}

int _tmain(int argc, const char** argv) {
    return run_entry(reduce_loud_tmain, argc, argv, 1);
}

}  // namespace reduce_loud
