#pragma once

#include "Common/loud_reduction/LoudReductionArgs.h"

namespace reduce_loud {

/** The settings of the step. */
struct ReduceLoudArgs : LoudReductionArgs {
    ReduceLoudArgs();
};

struct CCLArgs {
    /** Throws ss_empty_command_line_error, ss_command_line_error. */
    static void GetArgs(int argc, const char** argv, ReduceLoudArgs& args);
    static void ShowArgs(const ReduceLoudArgs& args);
};

}  // namespace reduce_loud
