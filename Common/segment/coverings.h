#pragma once

#include <boost/scoped_array.hpp>
#include <cstddef>
#include <cstdint>

#include "Common/segment/CostCalculatorSD.h"
#include "Common/segment/search_kernel.h"

namespace segment {

/**
 * The best coverings of a chunk with k breakpoints, searched a few k at a time: how many are needed
 * is not known in advance, so the first batch is small, and those beyond the one that is taken are
 * searched in vain. One object serves all chunks of a series.
 */
class Coverings {
  public:
    /** For chunks of chunk_size values at most. Throws ss_alloc_error. */
    Coverings(std::uint16_t chunk_size, std::uint16_t max_breakpoints);

    /** Begins a chunk, with k = 0. The calculator is asked until the next chunk begins. */
    void begin(const CCostCalculatorSD& calculator, const SearchKernel& kernel);

    /** Searches k to `most` breakpoints at most, k being the first count that is not known yet. */
    void search_more(int most);

    /** The last k that has been searched. */
    int last_known() const { return batch_.first_k + batch_.count; }

    /** The least cost of covering the whole chunk; k of the batch that was searched last. */
    double least_cost(int k) const;

    /** Where the segment before the last one ends in the best covering of 0..j, any k > 0. */
    std::uint16_t end_before_last(int k, std::uint16_t j) const { return ppBestIMatrix[k][j]; }

  private:
    void begin_batch(int count);

    /** The least costs of covering 0..j, for one breakpoint count after another. */
    double* lanes_of(int j) const {
        return pCostMatrix.get() + static_cast<std::ptrdiff_t>(j) * batch_.width;
    }

    std::uint16_t row_size_;
    const SearchKernel* kernel_ = nullptr;
    SearchKernel::Batch batch_{};
    boost::scoped_array<double> pCostMatrix;
    boost::scoped_array<boost::scoped_array<std::uint16_t>> ppBestIMatrix;
    boost::scoped_array<std::uint16_t*> best_;
    boost::scoped_array<double> lengths_;
    boost::scoped_array<double> costs_;
    boost::scoped_array<double> blocks_;
    boost::scoped_array<long long> needed_;
    boost::scoped_array<int> latest_;
};

}  // namespace segment
