#include "Common/segment/CostCalculatorSD.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Common/segment/search_kernel.h"
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
    allocate(lengths_, chunk_size, "lengths", kSource);
    allocate(
        costs_,
        static_cast<std::size_t>(chunk_size) * std::min<int>(kMostTogether, min_segment_length),
        "costs", kSource);
    try {
        readSums(chunk_size, *is_, pSum.get(), pSumSq.get());
    } catch (const read_sums_error& error) {
        throw read_sums_error_with_file_info(error, name_);
    }
    // A row of lengths j - i is a piece of this one array, which begins elsewhere for each j.
    for (int t = 0; t < chunk_size; ++t) {
        lengths_[t] = chunk_size - t;
    }
    rounding_ = rounding_of_costs(pSumSq[chunk_size - 1], chunk_size);
}

void CCostCalculatorSD::Cost(double* pCost,
                             std::uint16_t* pBestI,
                             std::uint16_t j,
                             std::uint16_t k) const {
    double* const rows[] = {pCost, pCost};
    CostOfRows(rows, &pBestI, 1, j, 1, k);
}

/** The costs of the last segments do not depend on the breakpoint count: one row serves them all.
 */
void CCostCalculatorSD::CostOfRows(double* const* rows,
                                   std::uint16_t* const* pBestI,
                                   int row_count,
                                   int first_j,
                                   int j_count,
                                   int first_k) const {
    // With first_k breakpoints the segments before the last one hold first_k * m values at least:
    // before `first` there is nothing to add a last segment to.
    const int m = min_segment_length_;
    const int first = first_k * m - 1;
    require(j_count <= std::min(m, kMostTogether) && first_j - m >= first, "minimumFound");
    for (int t = 0; t < j_count; ++t) {
        const int j = first_j + t;
        const SearchKernel::Sums sums{pSum.get() + first, pSumSq.get() + first,
                                      lengths_.get() + (GetChunkSize() - j) + first, pSum[j],
                                      pSumSq[j]};
        require(kernel().segment_costs(sums, -rounding_, costs(t) + first, j - m + 1 - first),
                "dCost >= 0.0");
    }
    for (int row = 0; row < row_count; row += SearchKernel::kRows) {
        search(rows + row, pBestI + row, std::min(SearchKernel::kRows, row_count - row),
               first + row * m, first_j, j_count);
    }
}

/**
 * The totals are looked at block by block, each for all j while it is in the nearest cache; only in
 * the first block that holds the least one is its place looked for, from the front. Row r begins r
 * segments later than the first one: what lies before is infinite and takes no part.
 */
void CCostCalculatorSD::search(double* const* rows,
                               std::uint16_t* const* pBestI,
                               int row_count,
                               int first,
                               int first_j,
                               int j_count) const {
    constexpr int kRows = SearchKernel::kRows;
    // Values of a row: eight rows and the costs of eight j are 16 KB, half of a common first cache.
    constexpr int kBlock = 128;

    struct Best {
        double total = std::numeric_limits<double>::infinity();
        int block = 0;
    };

    Best best[kMostTogether][kRows];
    const int first_end = first_j - min_segment_length_ + 1;
    for (int i = first; i < first_end + j_count - 1; i += kBlock) {
        const double* block[kRows];
        // Where there are fewer rows, the last one stands in for those that are missing.
        for (int r = 0; r < kRows; ++r) {
            block[r] = rows[std::min(r, row_count - 1)] + i;
        }
        for (int t = 0; t < j_count; ++t) {
            double least[kRows];
            kernel().least_totals(block, costs(t) + i, std::min(kBlock, first_end + t - i), least);
            for (int r = 0; r < row_count; ++r) {
                // Strictly less: of equally good blocks the first one stays, as the first value
                // does.
                if (least[r] < best[t][r].total) {
                    best[t][r] = {least[r], i};
                }
            }
        }
    }
    for (int t = 0; t < j_count; ++t) {
        for (int r = 0; r < row_count; ++r) {
            const Best& found = best[t][r];
            const int from = std::max(found.block, first + r * min_segment_length_);
            const int end = first_end + t;
            const int i = kernel().find_total(rows[r], costs(t), from, end, found.total);
            require(i < end || from >= end, "minimumFound");
            rows[r + 1][first_j + t] = found.total;
            pBestI[r][first_j + t] = static_cast<std::uint16_t>(i);
        }
    }
}

double CCostCalculatorSD::mean(std::uint16_t i, std::uint16_t j) const {
    return sum(i, j) / static_cast<std::uint16_t>(j - i + 1);
}

}  // namespace segment
