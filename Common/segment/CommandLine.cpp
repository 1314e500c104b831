#include "Common/segment/CommandLine.h"

#include "Common/reporting/log.h"
#include "Common/segment/segment_util.h"
#include "Common/step/step_options.h"

namespace segment {

namespace {
constexpr const char* kSource = "Common/segment/CommandLine";
}

int CCLArgs::GetArgs(int argc, const char** argv) {
    StepOptions parser("segment", options_file, StepOptions::kMayFailToOpen);
    parser.option("max-breakpoints,m", max_breakpoints, "maximum number of breakpoints (0=no max)")
        .option("min-segment-length,s", min_segment_length, "minimum segment length")
        .option("chunk-size,k", chunk_size, "chunk size for processing in pieces (0=no chunking)")
        .option("tolerance,t", tolerance, "threshold of fit (0=no threshold)")
        .option("cost-function,c", cost_function, "cost function (SSD0, MSD0)")
        .failure_texts("Error in command line: ", "Exception of unknown type occured")
        .help_caption("Allowed options");
    const ParseResult result = parser.parse(argc, argv);
    if (result.status != ParseResult::kOk) {
        log_msg(kSource, __LINE__, result.message);
        return 1;
    }
    if (max_breakpoints == 0 && tolerance == 0.0) {
        log_msg(kSource, __LINE__, "One of max-breakpoints or tolerance must be set");
        return 1;
    }
    return 0;
}

void CCLArgs::UpdateNMaxBreakpoints() {
    require(chunk_size > 0, "nChunkSize > 0");
    // 16 bits wide, and wrapping on purpose: a maximum of 0 becomes 65535 in the comparison, which
    // is how "no maximum" comes to be the limit. A chunk shorter than a segment wraps the limit as
    // well.
    const std::uint16_t limit = static_cast<std::uint16_t>(chunk_size / min_segment_length - 1);
    if (limit <= static_cast<std::uint16_t>(max_breakpoints - 1)) {
        max_breakpoints = limit;
    }
}

}  // namespace segment
