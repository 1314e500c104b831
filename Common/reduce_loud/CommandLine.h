#pragma once

#include "Common/loud_reduction/LoudReductionArgs.h"

namespace reduce_loud {

/** The settings of the step. */
struct ReduceLoudArgs : LoudReductionArgs {
    /** The step's own defaults: 3 dB above the mean, no attack, 150 ms of release. */
    ReduceLoudArgs();
};

/** The step's command line. */
struct CCLArgs {
    /**
     * Sets what the words and their options file name; the rest of args stays.
     * Throws ss_empty_command_line_error, ss_command_line_error.
     */
    static void GetArgs(int argc, const char** argv, ReduceLoudArgs& args);

    /** Prints the two levels on the standard output, in dB and as factors. */
    static void ShowArgs(const ReduceLoudArgs& args);
};

}  // namespace reduce_loud
