#include "Common/reduce_loud/CommandLine.h"

#include "Common/loud_reduction/CommandLine.h"
#include "Common/reduce_loud/reduce_loud.h"
#include "Common/step/conditioning_options.h"

namespace reduce_loud {

ReduceLoudArgs::ReduceLoudArgs() {
    noise_floor_db = -44.0;
    level_diff_db = 3.0;
    attack_ms = 0;
    // Three bins: the words after a shout are let up slowly.
    release_ms = 150;
    bin_size_ms = 50;
}

void CCLArgs::GetArgs(int argc, const char** argv, ReduceLoudArgs& args) {
    if (argc < 2) {
        throw ss_empty_command_line_error();
    }
    StepOptions parser("reduce_loud", args.options_file);
    add_loud_reduction_options(parser, args);
    parse_conditioning_options<Step>(parser, argc, argv, args.sound_file_in, args.sound_file_out);
}

void CCLArgs::ShowArgs(const ReduceLoudArgs& args) {
    show_loud_reduction_args(args);
}

}  // namespace reduce_loud
