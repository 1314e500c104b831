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
 * by up to sqrt(n) times as much: a cost that is 0 can come out this far from it.
 */
double rounding_of_costs(double sum_of_squares, double n) {
    return 8.0 * n * std::sqrt(n) * std::numeric_limits<double>::epsilon() * sum_of_squares;
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
    allocate(lengths_, chunk_size, "lengths", kSource);
    allocate(totals_, chunk_size, "totals", kSource);
    try {
        readSums(chunk_size, *is_, pSum.get(), pSumSq.get());
    } catch (const read_sums_error& error) {
        throw read_sums_error_with_file_info(error, name_);
    }
    for (int t = 0; t < chunk_size; ++t) {
        lengths_[t] = chunk_size - t;
    }
    rounding_ = rounding_of_costs(pSumSq[chunk_size - 1], chunk_size);
}

void CCostCalculatorSD::Cost(double* pCost,
                             std::uint16_t* pBestI,
                             std::uint16_t j,
                             std::uint16_t k) const {
    const Split best = BestSplit(pCost, k * min_segment_length_ - 1, j - min_segment_length_, j);
    require(best.i >= 0, "minimumFound");
    pCost[j] = best.cost;
    pBestI[j] = static_cast<std::uint16_t>(best.i);
}

double CCostCalculatorSD::mean(std::uint16_t i, std::uint16_t j) const {
    return sum(i, j) / static_cast<std::uint16_t>(j - i + 1);
}

}  // namespace segment
