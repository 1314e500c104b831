#include "Common/calculate_gains/CommandLine.h"

#include <cmath>

#include "Common/reporting/log.h"
#include "Common/step/step_options.h"

namespace calculate_gains {

int CCLArgs::GetArgs(int argc, const char** argv) {
    StepOptions parser("calculate_gains", options_file);
    parser.option("noise-threshold,t", noise_threshold, "noise threshold (linear)")
        .option("buffer-length,b", buffer_length_s, "circular buffer length (s)")
        .option("bin-size,s", bin_size_ms, "bin size (ms)")
        .optional("gain-limit,l", gain_limit_db, "limit maximum gain to this value (dB)")
        .positional("wave-file", wave_file, "wave file (in)")
        .positional("cuelist-file", cue_list_file, "cue list file (in)")
        .positional("gains-file", gains_file, "gains file (out)")
        .positional("rms-file", rms_file, "RMS file (out)")
        .help_caption("Allowed options");
    ParseResult result = parser.parse(argc, argv);
    if (result.status == ParseResult::kOk && wave_file.empty()) {
        result = {ParseResult::kFailed, "error: a wave file is needed"};
    }
    if (result.status != ParseResult::kOk) {
        log_msg("Common/calculate_gains/CommandLine", __LINE__, result.message);
        return 1;
    }
    has_cue_list = !cue_list_file.empty();
    // A limit of 0 is one: it keeps every segment as it is.
    has_gain_limit = parser.given("gain-limit");
    // A limit works both ways, so its sign means nothing.
    gain_limit_db = std::fabs(gain_limit_db);
    return 0;
}

}  // namespace calculate_gains
