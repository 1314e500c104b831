#pragma once

#include <boost/scoped_ptr.hpp>
#include <cstdint>
#include <fstream>
#include <iosfwd>
#include <string>

#include "Common/segment/CostCombiner.h"

namespace segment {

/** What a calculator of segment costs over one chunk of values is made of. */
class CCostCalculator {
  public:
    /**
     * is: where the values come from, not owned. combiner: owned from now on. name: of the input,
     * in errors. Segments hold at least min_segment_length values.
     */
    CCostCalculator(std::istream* is,
                    const std::string& name,
                    std::uint16_t chunk_size,
                    std::uint16_t min_segment_length,
                    CostCombiner* combiner);
    CCostCalculator(const CCostCalculator&) = delete;
    CCostCalculator& operator=(const CCostCalculator&) = delete;
    virtual ~CCostCalculator();

    double CombineCosts(double previous, double segment) const {
        return combiner_->combine(previous, segment);
    }

    std::uint16_t GetChunkSize() const { return chunk_size_; }

    /** Debugging: the costs for k breakpoints; first sets those that mean nothing to -1. */
    void DumpCostMatrix(std::ofstream* file, double* pCost, std::uint16_t k) const;

    /** Debugging: where the last segment of the best covering of 0..j starts, less 1, for each j.
     */
    void DumpBestIMatrix(std::ofstream* file, const std::uint16_t* pBestI) const;

  protected:
    std::istream* is_;
    std::uint16_t chunk_size_;
    std::uint16_t min_segment_length_;
    boost::scoped_ptr<CostCombiner> combiner_;
    std::string name_;
};

}  // namespace segment
