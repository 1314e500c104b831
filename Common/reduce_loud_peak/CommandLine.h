#pragma once

#include "Common/loud_reduction/LoudReductionArgs.h"

namespace reduce_loud_peak {

/** The settings of the step. */
struct ReduceLoudArgs : LoudReductionArgs {
    /** The step's own defaults: 15 dB above the mean, no ramps, bins of 50 ms. */
    ReduceLoudArgs();

    int verbosity = 1;  // above 0: ReduceLoudOperation::Log prints
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

}  // namespace reduce_loud_peak
