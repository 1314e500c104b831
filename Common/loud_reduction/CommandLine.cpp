#include "Common/loud_reduction/CommandLine.h"

#include <cstdio>

#include "Common/units.h"

namespace level_engine {

void add_loud_reduction_options(StepOptions& options, LoudReductionArgs& args) {
    options.option("level_diff,l", args.level_diff_db, "maximum level above mean (dB)")
        .option("attack,a", args.attack_ms, "attack (ms)")
        .option("release,r", args.release_ms, "release (ms)")
        .option("noise-floor,f", args.noise_floor_db, "noise floor (dB)")
        .option("bin-size,s", args.bin_size_ms, "bin size (ms)");
}

void show_loud_reduction_args(const LoudReductionArgs& args) {
    std::printf("Noise floor:       %.2lfdB (%6.4lf)\n", args.noise_floor_db,
                db_to_linear(args.noise_floor_db));
    std::printf("Level difference:  %.2lfdB (%6.4lf)\n", args.level_diff_db,
                db_to_linear(args.level_diff_db));
}

}  // namespace level_engine
