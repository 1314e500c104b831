/*
 * Arbitrary doubles into the segmentation: NaN, infinities, huge and denormal values among them.
 * The text that it gets is what the step before would write; each breakpoint that comes out is an
 * index into the values, and there is a fitted level for each value of the chunks that were worked
 * on.
 */
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>

#include "Common/segment/segment.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

/** Beyond this the sums of squares overflow, and the segmentation's own assertion ends the process
 * as it is meant to. */
constexpr double kLargestLevel = 1e100;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryBound bound(size);
    if (size < 4 + sizeof(double)) {
        return 0;
    }
    std::ostringstream text;
    std::size_t values = 0;
    for (std::size_t at = 4; at + sizeof(double) <= size; at += sizeof(double)) {
        double value = 0.0;
        std::memcpy(&value, data + at, sizeof value);
        if (std::fabs(value) > kLargestLevel && std::isfinite(value)) {
            value = std::fmod(value, kLargestLevel);
        }
        text << value << "\n";
        ++values;
    }
    const std::string words[] = {"segment",
                                 "--min-segment-length",
                                 std::to_string(data[0] % 32),
                                 "--max-breakpoints",
                                 std::to_string(data[1] % 64),
                                 "--chunk-size",
                                 std::to_string(data[2]),
                                 "--tolerance",
                                 std::to_string(data[3] / 16.0),
                                 "--cost-function",
                                 data[3] % 2 == 0 ? "SSD0" : "MSD0"};
    const char* argv[11];
    for (std::size_t i = 0; i < 11; ++i) {
        argv[i] = words[i].c_str();
    }
    std::ostringstream fit;
    std::stringstream breakpoints;
    if (segment::_tmain(11, argv, text.str(), fit, breakpoints) == 0) {
        for (std::size_t index = 0; breakpoints >> index;) {
            if (index == 0 || index >= values) {
                std::abort();
            }
        }
    }
    return 0;
}
