#include "Common/segment/segment.h"

#include <algorithm>
#include <boost/scoped_array.hpp>
#include <boost/scoped_ptr.hpp>
#include <cstdint>
#include <istream>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "Common/files/numbers.h"
#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/segment/CommandLine.h"
#include "Common/segment/MakeCalculator.h"
#include "Common/segment/coverings.h"
#include "Common/segment/segment_util.h"
#include "Common/ss_util.h"
#include "Common/units.h"

/*
 * The segmentation. A series x of n values is to be covered by segments, each of at least m values,
 * so that the levels stay close to the mean of their segment. For a given number k of breakpoints
 * the best covering is found exactly, by dynamic programming over the end of the last segment
 * (Bellman's recursion):
 *
 *     C(0, j) = cost of segment 0..j
 *     C(k, j) = min over i of combine(C(k - 1, i), cost of segment i + 1..j)
 *
 * A segment's cost comes from prefix sums of the values and their squares in constant time, so that
 * a row C(k, .) takes n^2 / 2 totals. k grows until the fit of the whole, C(k, n - 1) in the unit
 * of the values, is within the tolerance, or k has reached its maximum.
 *
 * What makes it fast:
 *   - The counts k are searched side by side, a few at a time (coverings.h): the costs of the last
 *     segments that end at j are the same for all of them.
 *   - Whole blocks of starts that cannot hold the least total are skipped, and the rest runs in
 *     vectors (search_kernel.cpp). None of this is an approximation: every total that could be the
 *     least is computed from the same doubles by the same expression, and of equally good places
 *     the first one wins, so that the breakpoints are those of the plain triple loop.
 *
 * A long series is cut into chunks, which are segmented one by one: time grows with the chunk's
 * square, and the start of a chunk is a breakpoint whatever the levels do there. Counts and indices
 * are 16 bits wide within a chunk and 32 bits over all.
 */
namespace segment {

namespace {

constexpr const char* kSource = "Common/segment/segment";
constexpr const char* kInputName = "_string_";

std::uint32_t count_values(std::istream& is) {
    constexpr std::uint32_t kMost = 0xFFFFFFFF;
    std::uint32_t count = 0;
    for (double value = 0.0; count < kMost && read_number(is, value);) {
        ++count;
    }
    // Reading to the end set the stream's flags; the chunks read the text again from the start.
    is.clear();
    is.seekg(0);
    return count;
}

const CMakeAnyCalculator* calculator_maker(const std::string& cost_function) {
    static const CMakeCalculator<CCostCalculatorSSD0> kSSD0;
    static const CMakeCalculator<CCostCalculatorMSD0> kMSD0;
    if (cost_function == "SSD0") {
        return &kSSD0;
    }
    return cost_function == "MSD0" ? &kMSD0 : nullptr;
}

/** Segments chunk after chunk with one set of working arrays. */
class Chunks {
  public:
    Chunks(const CCLArgs& args,
           std::uint32_t value_count,
           std::uint16_t chunk_count,
           std::istream& values,
           std::ostream& fit,
           std::ostream& breaks)
        : args_(args),
          value_count_(value_count),
          chunk_count_(chunk_count),
          values_(values),
          fit_(fit),
          breaks_(breaks),
          coverings_(args.chunk_size, args.max_breakpoints) {}

    int segment_all(const CMakeAnyCalculator& maker);

  private:
    std::uint16_t find_breakpoint_count(const CCostCalculatorSD& calculator);
    void backtrack(std::uint16_t breakpoints, std::uint32_t offset);
    int write_fit(const CCostCalculatorSD& calculator, std::uint16_t breakpoints);
    int write_fit(const CCostCalculatorSD& calculator, std::uint16_t start, std::uint16_t end);

    CCLArgs args_;
    std::uint32_t value_count_;
    std::uint16_t chunk_count_;
    std::istream& values_;
    std::ostream& fit_;
    std::ostream& breaks_;
    Coverings coverings_;
    boost::scoped_array<std::uint16_t> pBreakpoints;         // in the chunk
    boost::scoped_array<unsigned int> pBreakpointsAdjusted;  // in the whole series
};

int Chunks::segment_all(const CMakeAnyCalculator& maker) {
    CProgress progress(progress_range::kSegment.low, progress_range::kSegment.high);
    progress.show(0.0);
    std::uint32_t offset = 0;
    for (int c = 0; c < chunk_count_; ++c) {
        if (c == chunk_count_ - 1 && value_count_ % args_.chunk_size != 0) {
            args_.chunk_size = static_cast<std::uint16_t>(value_count_ % args_.chunk_size);
            // Never raised again: the last chunk is the shortest.
            args_.UpdateNMaxBreakpoints();
        }
        // A rest that holds no segment gets no breakpoints and no fit: both outputs end before it.
        if (args_.chunk_size < args_.min_segment_length) {
            break;
        }
        const boost::scoped_ptr<CCostCalculatorSD> calculator(
            maker.make(&values_, kInputName, args_.chunk_size, args_.min_segment_length));
        const std::uint16_t breakpoints = find_breakpoint_count(*calculator);
        backtrack(breakpoints, offset);
        if (WriteBreakpointFile(breaks_, kInputName, pBreakpointsAdjusted.get(),
                                static_cast<std::uint16_t>(breakpoints + 1)) != 0 ||
            write_fit(*calculator, breakpoints) != 0) {
            return 1;
        }
        offset += args_.chunk_size;
        progress.show(chunk_count_ == 1 ? 1.0 : static_cast<double>(c) / (chunk_count_ - 1));
    }
    return 0;
}

/** The least number of breakpoints whose fit is within the tolerance, or the most allowed. */
std::uint16_t Chunks::find_breakpoint_count(const CCostCalculatorSD& calculator) {
    const std::uint16_t last = static_cast<std::uint16_t>(args_.chunk_size - 1);
    double fit = calculator.NormalizedCost(calculator.CostOneSegment(0, last));
    std::uint16_t k = 0;
    for (;; ++k) {
        if (fit <= args_.tolerance) {
            return static_cast<std::uint16_t>(k == 0 ? 0 : k - 1);
        }
        if (k == 0) {
            coverings_.begin(calculator, calculator.kernels().front());
        } else if (k > coverings_.last_known()) {
            coverings_.search_more(args_.max_breakpoints);
        }
        fit = calculator.NormalizedCost(coverings_.least_cost(k));
        // The most allowed are taken, whether they fit or not.
        if (k + 1 > args_.max_breakpoints) {
            return k;
        }
    }
}

void Chunks::backtrack(std::uint16_t breakpoints, std::uint32_t offset) {
    allocate(pBreakpoints, breakpoints, "pBreakpoints", kSource);
    allocate(pBreakpointsAdjusted, static_cast<std::size_t>(breakpoints) + 1,
             "pBreakpointsAdjusted", kSource);
    pBreakpointsAdjusted[0] = offset;
    // From the chunk's last value back: each entry names the end of the segment before.
    std::uint16_t j = static_cast<std::uint16_t>(args_.chunk_size - 1);
    for (std::uint16_t k = breakpoints; k > 0; --k) {
        const std::uint16_t i = coverings_.end_before_last(k, j);
        pBreakpoints[k - 1] = static_cast<std::uint16_t>(i + 1);
        pBreakpointsAdjusted[k] = offset + i + 1;
        j = i;
    }
}

int Chunks::write_fit(const CCostCalculatorSD& calculator, std::uint16_t breakpoints) {
    std::uint16_t start = 0;
    for (std::uint16_t k = 0; k < breakpoints; ++k) {
        const std::uint16_t next = pBreakpoints[k];
        require(next > 0, "theBreakpoint > 0");
        require(next < calculator.GetChunkSize(), "theBreakpoint < pCC->GetChunkSize()");
        if (write_fit(calculator, start, static_cast<std::uint16_t>(next - 1)) != 0) {
            return 1;
        }
        start = next;
    }
    return write_fit(calculator, start, static_cast<std::uint16_t>(args_.chunk_size - 1));
}

int Chunks::write_fit(const CCostCalculatorSD& calculator, std::uint16_t start, std::uint16_t end) {
    // The text is the same for all values of the segment.
    std::ostringstream line;
    line.copyfmt(fit_);
    line.imbue(std::locale::classic());
    line << calculator.GetFitValue(start, end) << "\n";
    const std::string text = line.str();
    for (int i = start; i <= end; ++i) {
        if (!fit_) {
            return log_failure(kSource, __LINE__, "Error writing to fFit");
        }
        fit_ << text;
    }
    return 0;
}

/** Settles what hangs on the number of values; returns how many chunks there are. */
std::uint16_t settle_chunks(CCLArgs& args, std::uint32_t count) {
    args.min_segment_length = std::max<std::uint16_t>(1, args.min_segment_length);
    // A series shorter than a chunk is one chunk of its own length.
    if (count < args.chunk_size) {
        args.chunk_size = static_cast<std::uint16_t>(count);
    }
    // Both are 16 bits wide and wrap: a series of more than 65535 values needs chunks.
    std::uint16_t chunk_count = 1;
    if (args.chunk_size == 0) {
        args.chunk_size = static_cast<std::uint16_t>(count);
    } else {
        chunk_count = static_cast<std::uint16_t>(ceildiv(count, args.chunk_size));
    }
    args.UpdateNMaxBreakpoints();
    return chunk_count;
}

}  // namespace

int segment_tmain(int argc,
                  const char** argv,
                  const std::string& input,
                  std::ostream& fFit,
                  std::ostream& fBreak) {
    CCLArgs args;
    const int parsed = args.GetArgs(argc, argv);
    if (parsed != 0) {
        return parsed;
    }
    std::istringstream values(input);
    values.imbue(std::locale::classic());
    if (!fFit.good()) {
        return log_failure(kSource, __LINE__, "Error opening fFit for output");
    }
    if (!fBreak.good()) {
        return log_failure(kSource, __LINE__, "Error opening fBreak for output");
    }
    const std::uint32_t count = count_values(values);
    if (!values.good()) {
        return log_failure(kSource, __LINE__, "Error: fIn is not good for i/o");
    }
    if (count == 0) {
        return log_failure(kSource, __LINE__, "Error: there are no values to segment");
    }
    const std::uint16_t chunk_count = settle_chunks(args, count);
    args.ShowArgs();
    if (args.cost_function == "MSD0" && args.min_segment_length != 1) {
        log_msg(kSource, __LINE__,
                "***Warning: using MSD0 with minimum segment length > 1 is not recommended.***");
    }
    const CMakeAnyCalculator* maker = calculator_maker(args.cost_function);
    if (maker == nullptr) {
        return log_failure(kSource, __LINE__,
                           "error: unknown cost function \"" + args.cost_function + "\"");
    }
    return Chunks(args, count, chunk_count, values, fFit, fBreak).segment_all(*maker);
}

// NOLINTBEGIN(performance-unnecessary-value-param): the path is a value in the step's contract.
int _tmain(
    int argc, const char** argv, std::string input, std::ostream& fFit, std::ostream& fBreak) {
    // NOLINTEND(performance-unnecessary-value-param)
    const auto where = [](const read_sums_error& error) {
        return "(line " + std::to_string(error.line()) + " in " + error.source() + ")";
    };
    try {
        return segment_tmain(argc, argv, input, fFit, fBreak);
    } catch (const ss_alloc_error&) {
        return log_failure(kSource, __LINE__, "Out of memory.");
    } catch (const read_sums_error_with_file_info& error) {
        return log_failure(kSource, __LINE__,
                           "readSums -- Error reading " + error.name() + " " + where(error));
    } catch (const read_sums_error& error) {
        return log_failure(kSource, __LINE__, "readSums -- Error " + where(error));
    }
}

}  // namespace segment
