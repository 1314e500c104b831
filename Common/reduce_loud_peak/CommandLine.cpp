#include "Common/reduce_loud_peak/CommandLine.h"

#include "Common/loud_reduction/CommandLine.h"
#include "Common/reduce_loud_peak/reduce_loud_peak.h"
#include "Common/step/conditioning_options.h"

namespace reduce_loud_peak {

ReduceLoudArgs::ReduceLoudArgs() {
    noise_floor_db = -44.0;
    level_diff_db = 15.0;
    // A peak is over within its bin: the neighbours are lowered by no more than the shared wall.
    attack_ms = 0;
    release_ms = 0;
    bin_size_ms = 50;
}

void CCLArgs::GetArgs(int argc, const char** argv, ReduceLoudArgs& args) {
    if (argc < 2) {
        throw ss_empty_command_line_error();
    }
    StepOptions parser("reduce_loud_peak", args.options_file);
    add_loud_reduction_options(parser, args);
    parser.option("verbosity,v", args.verbosity, "verbosity level");
    parse_conditioning_options<Step>(parser, argc, argv, args.sound_file_in, args.sound_file_out);
}

void CCLArgs::ShowArgs(const ReduceLoudArgs& args) {
    show_loud_reduction_args(args);
}

}  // namespace reduce_loud_peak
