#include "Common/segment/segment_util.h"

#include <cstdlib>
#include <iostream>
#include <utility>

#include "Common/files/numbers.h"
#include "Common/reporting/log.h"

namespace segment {

namespace {
constexpr const char* kSource = "Common/segment/segment_util";
thread_local AssertionHandler assertion_handler = nullptr;
}  // namespace

AssertionHandler set_assertion_handler(AssertionHandler handler) {
    return std::exchange(assertion_handler, handler);
}

// A failed assertion is a fault of the program, not of the recording, and to continue would write
// wrong gains. So the process ends, in a release build too. A library must not end its host
// process: its handler throws, which ends only the run. When a handler returns, the process ends as
// without one.
void assertion_failed(const char* condition) {
    if (assertion_handler != nullptr) {
        assertion_handler(condition);
    }
    std::cerr << "Assertion failed: " << condition << std::endl;
    std::abort();
}

void readNums(std::uint16_t n, std::istream& is, double* out) {
    // After the last number of a text without a line end the stream is at its end, which is not
    // good: that number is refused, too.
    int i = 0;
    for (; i < n; ++i) {
        if (!read_number(is, out[i]) || !is.good()) {
            throw read_sums_error(__LINE__, kSource);
        }
    }
    require(i == n, "i == nChunkSize");
}

void readSums(std::uint16_t n, std::istream& is, double* pSum, double* pSumSq) {
    readNums(n, is, pSum);
    // From the front and without compensation: the bits of all costs depend on it.
    double sum = 0.0;
    double sum_of_squares = 0.0;
    for (int i = 0; i < n; ++i) {
        const double value = pSum[i];
        sum += value;
        sum_of_squares += value * value;
        pSum[i] = sum;
        pSumSq[i] = sum_of_squares;
    }
}

int WriteBreakpointFile(std::ostream& os,
                        const std::string& name,
                        const unsigned int* pBreakpoints,
                        std::uint16_t count) {
    for (int i = 0; i < count; ++i) {
        // A breakpoint is in front of a value, never of the first: 0 marks a missing one.
        if (pBreakpoints[i] != 0) {
            os << pBreakpoints[i] << std::endl;
        }
        if (!os) {
            log_msg(kSource, __LINE__,
                    "Error writing to " + name + " (line " + std::to_string(__LINE__) + " of " +
                        kSource + ")");
            return 1;
        }
    }
    return 0;
}

}  // namespace segment
