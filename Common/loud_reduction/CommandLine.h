#pragma once

#include "Common/loud_reduction/LoudReductionArgs.h"
#include "Common/step/step_options.h"

namespace level_engine {

/** Declares the options that both loud-reduction steps share, in their order. */
void add_loud_reduction_options(StepOptions& options, LoudReductionArgs& args);

/** Prints the noise floor and the level difference, each in dB and linear. */
void show_loud_reduction_args(const LoudReductionArgs& args);

}  // namespace level_engine

using level_engine::add_loud_reduction_options;
using level_engine::show_loud_reduction_args;
