#include "Common/normalize/CommandLine.h"

#include <cstdio>

#include "Common/CommandLine.h"
#include "Common/normalize/normalize.h"
#include "Common/reporting/log.h"
#include "Common/step/step_options.h"
#include "Common/units.h"

namespace normalize {

void CCLArgs::GetArgs(int argc, const char** argv) {
    StepOptions parser("normalize", options_file);
    parser.option("target-level,l", args.target_level_db, "target level (dB)")
        .option("fit-tolerance,t", args.fit_tolerance_db, "fit tolerance (dB)")
        .option("attack,a", args.attack_ms, "attack (ms)")
        .option("release,r", args.release_ms, "release (ms)")
        .option("noise-floor,f", args.noise_floor_db, "noise floor (dB)")
        .option("peak-output,p", args.peak_output_db, "peak output level (dB)")
        .option("bin-size,s", args.bin_size_ms, "bin size (ms)")
        .option("bit-depth,b", args.bit_depth, "bit depth of output")
        .positional("sound-file-in", args.sound_file_in, "input sound file")
        .positional("sound-file-out", args.sound_file_out, "output sound file");
    ParseResult result = parser.parse(argc, argv);
    // Without both files there is nothing to do: the answer is the help, and it counts as a
    // failure.
    if (result.status == ParseResult::kOk &&
        (args.sound_file_in.empty() || args.sound_file_out.empty())) {
        result = {ParseResult::kHelp, parser.help()};
    }
    if (result.status != ParseResult::kOk) {
        log_failure("Common/normalize/CommandLine", __LINE__, result.message);
        throw ss_command_line_error();
    }
    if (!is_known_bit_depth(args.bit_depth)) {
        reporting::say_failure(reporting::Kind::kOther,
                               "Unknown bit depth: " + std::to_string(args.bit_depth));
        throw ss_command_line_error();
    }
}

void CCLArgs::ShowArgs() const {
    std::printf("Fit tolerance:     %.2lfdB\n", args.fit_tolerance_db);
    const auto show = [](const char* format, double level_db) {
        std::printf("%s%.2lfdB (%6.4lf)\n", format, level_db, db_to_linear(level_db));
    };
    show("Noise floor:       ", args.noise_floor_db);
    show("Peak output:       ", args.peak_output_db);
    show("Target level:      ", args.target_level_db);
}

NormalizeArgs GetArgs(int argc, const char** argv) {
    CCLArgs parsed;
    parsed.GetArgs(argc, argv);
    return parsed.args;
}

}  // namespace normalize
