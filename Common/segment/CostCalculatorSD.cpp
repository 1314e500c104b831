#include "Common/segment/CostCalculatorSD.h"

#include <cmath>
#include <limits>

#include "Common/segment/segment_util.h"
#include "Common/ss_util.h"

namespace segment {

namespace {

constexpr const char* kSource = "Common/segment/CostCalculatorSD";

/**
 * Prefix sums of n values are off by up to n epsilons of their size, and the mean's part of a cost
 * by up to sqrt(n) times as much: a cost that is 0 can come out this far from it. Squares below the
 * least normal number keep hardly a digit.
 */
double rounding_of_costs(double sum_of_squares, double n) {
    using Limits = std::numeric_limits<double>;
    return 8.0 * n * std::sqrt(n) * (Limits::epsilon() * sum_of_squares + Limits::min());
}

}  // namespace

CCostCalculatorSD::CCostCalculatorSD(std::istream* is,
                                     const std::string& name,
                                     std::uint16_t chunk_size,
                                     std::uint16_t min_segment_length,
                                     CostCombiner* combiner)
    : CCostCalculator(is, name, chunk_size, min_segment_length, combiner) {
    allocate(pSum, chunk_size, "pSum", kSource);
    allocate(pSumSq, chunk_size, "pSumSq", kSource);
    try {
        readSums(chunk_size, *is_, pSum.get(), pSumSq.get());
    } catch (const read_sums_error& error) {
        throw read_sums_error_with_file_info(error, name_);
    }
    rounding_ = rounding_of_costs(pSumSq[chunk_size - 1], chunk_size);
}

void CCostCalculatorSD::Cost(double* pCost,
                             std::uint16_t* pBestI,
                             std::uint16_t j,
                             std::uint16_t k) const {
    // k segments hold k * m values at least: before that there is nothing to add a last one to.
    const int first = k * min_segment_length_ - 1;
    const int last = j - min_segment_length_;
    require(first <= last, "minimumFound");
    double least = std::numeric_limits<double>::infinity();
    int place = first;
    for (int i = first; i <= last; ++i) {
        const double total =
            CombineCosts(pCost[i], CostOneSegment(static_cast<std::uint16_t>(i + 1), j));
        if (total < least) {
            least = total;
            place = i;
        }
    }
    pCost[j] = least;
    pBestI[j] = static_cast<std::uint16_t>(place);
}

void CCostCalculatorSD::describe(SearchKernel::Batch& batch) const {
    // Beyond this the square of a sum over a chunk could overflow.
    constexpr double kLargestSum = 1e290;
    batch.chunk_size = GetChunkSize();
    batch.shortest = min_segment_length_;
    batch.sums = pSum.get();
    batch.squares = pSumSq.get();
    batch.lowest_cost = -rounding_;
    batch.margin = superadditive() && pSumSq[GetChunkSize() - 1] < kLargestSum
                       ? 4.0 * rounding_
                       : std::numeric_limits<double>::infinity();
}

double CCostCalculatorSD::mean(std::uint16_t i, std::uint16_t j) const {
    return sum(i, j) / static_cast<std::uint16_t>(j - i + 1);
}

}  // namespace segment
