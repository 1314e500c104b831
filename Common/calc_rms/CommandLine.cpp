#include "Common/calc_rms/CommandLine.h"

#include "Common/reporting/log.h"
#include "Common/step/step_options.h"

namespace calc_rms {

int CCLArgs::GetArgs(int argc, const char** argv) {
    StepOptions parser("calc_rms", options_file);
    parser.option("bin-size,s", bin_size_ms, "bin size (ms)")
        .positional("input-file", input_file, "input audio file")
        .positional("output-file", output_file, "output text file to hold RMS values")
        .help_caption("Allowed options");
    const ParseResult result = parser.parse(argc, argv);
    if (result.status != ParseResult::kOk) {
        log_msg("Common/calc_rms/CommandLine", __LINE__, result.message);
        return 1;
    }
    // No words about it: the file that has no name will not open, and that says why.
    return input_file.empty() || output_file.empty() ? 1 : 0;
}

}  // namespace calc_rms
