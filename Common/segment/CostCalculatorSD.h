#pragma once

#include <boost/scoped_array.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "Common/segment/CostCalculator.h"
#include "Common/segment/search_kernel.h"

namespace segment {

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
     * one, the smallest of equally good ones. Runs call Coverings instead, which does the same for
     * all j and k of a chunk, and fast; this plain form stays as the calculator's interface, and
     * the tests compare Coverings with it.
     */
    void Cost(double* pCost, std::uint16_t* pBestI, std::uint16_t j, std::uint16_t k) const;

    /** Fills in what a search kernel has to know of the chunk. */
    void describe(SearchKernel::Batch& batch) const;

    /** The versions of the search for this cost, the widest first. */
    virtual const std::vector<SearchKernel>& kernels() const = 0;

    virtual double CostOneSegment(std::uint16_t i, std::uint16_t j) const = 0;

    /** The level that represents all values of a segment. */
    virtual double GetFitValue(std::uint16_t i, std::uint16_t j) const = 0;

    /** A covering's cost in the unit of the values. */
    virtual double NormalizedCost(double cost) const = 0;

  protected:
    /** Whether two neighbouring segments never cost more than one segment in their place. */
    virtual bool superadditive() const = 0;

    double mean(std::uint16_t i, std::uint16_t j) const;

    double sum(int i, int j) const { return i == 0 ? pSum[j] : pSum[j] - pSum[i - 1]; }

    double sum_of_squares(int i, int j) const {
        return i == 0 ? pSumSq[j] : pSumSq[j] - pSumSq[i - 1];
    }

    boost::scoped_array<double> pSum;    // pSum[j]: of the values 0..j
    boost::scoped_array<double> pSumSq;  // of their squares
    double rounding_;                    // how far below 0 rounding can take a segment's cost
};

}  // namespace segment
