#pragma once

#include <boost/scoped_array.hpp>
#include <cstdint>
#include <string>

#include "Common/segment/CostCalculator.h"

namespace segment {

struct SearchKernel;

/**
 * Costs built from squared deviations: prefix sums of the chunk's values and of their squares give
 * the cost of any segment in constant time. Indices run from 0 within the chunk; segment [i, j]
 * includes both ends.
 */
class CCostCalculatorSD : public CCostCalculator {
  public:
    /** Reads chunk_size values. Throws read_sums_error_with_file_info, ss_alloc_error. */
    CCostCalculatorSD(std::istream* is,
                      const std::string& name,
                      std::uint16_t chunk_size,
                      std::uint16_t min_segment_length,
                      CostCombiner* combiner);

    /**
     * One step of the dynamic programme, Bellman's recursion over the start of the last segment.
     * On entry pCost[i] is the least cost of covering 0..i by k segments; pCost[j] becomes the
     * least cost of covering 0..j by k + 1 and pBestI[j] the end of the segment before the last
     * one, the smallest of equally good ones.
     */
    void Cost(double* pCost, std::uint16_t* pBestI, std::uint16_t j, std::uint16_t k) const;

    /** How many j CostOfRows takes at most; no more than the shortest segment holds either. */
    static constexpr int kMostTogether = 8;

    /**
     * The same step for several breakpoint counts, first_k and those that follow it, and for a few
     * j, first_j and those that follow it. rows[r] holds the least costs for first_k - 1 + r
     * breakpoints, infinity where so many do not fit: the first row of all values, the others of
     * those below first_j. rows[1] to rows[row_count] receive their values at the j, pBestI[0] to
     * pBestI[row_count - 1] theirs. Where a row's breakpoints do not fit, that is infinity and a
     * value of no meaning.
     */
    void CostOfRows(double* const* rows,
                    std::uint16_t* const* pBestI,
                    int row_count,
                    int first_j,
                    int j_count,
                    int first_k) const;

    virtual double CostOneSegment(std::uint16_t i, std::uint16_t j) const = 0;

    /** The level that stands for all values of a segment. */
    virtual double GetFitValue(std::uint16_t i, std::uint16_t j) const = 0;

    /** A covering's cost in the unit of the values. */
    virtual double NormalizedCost(double cost) const = 0;

  protected:
    virtual const SearchKernel& kernel() const = 0;

    double mean(std::uint16_t i, std::uint16_t j) const;

    double sum(int i, int j) const { return i == 0 ? pSum[j] : pSum[j] - pSum[i - 1]; }

    double sum_of_squares(int i, int j) const {
        return i == 0 ? pSumSq[j] : pSumSq[j] - pSumSq[i - 1];
    }

    boost::scoped_array<double> pSum;    // pSum[j]: of the values 0..j
    boost::scoped_array<double> pSumSq;  // of their squares
    double rounding_;                    // how far below 0 rounding can take a segment's cost

  private:
    void search(double* const* rows,
                std::uint16_t* const* pBestI,
                int row_count,
                int first,
                int first_j,
                int j_count) const;

    /** Scratch: what the last segments that end at one j cost. */
    double* costs(int t) const {
        return costs_.get() + static_cast<std::ptrdiff_t>(t) * GetChunkSize();
    }

    boost::scoped_array<double> lengths_;  // lengths_[t] is chunk_size - t
    boost::scoped_array<double> costs_;
};

}  // namespace segment
