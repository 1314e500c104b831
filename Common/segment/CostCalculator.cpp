#include "Common/segment/CostCalculator.h"

#include <algorithm>
#include <cstdio>

namespace segment {

CCostCalculator::CCostCalculator(std::istream* is,
                                 const std::string& name,
                                 std::uint16_t chunk_size,
                                 std::uint16_t min_segment_length,
                                 CostCombiner* combiner)
    : is_(is),
      chunk_size_(chunk_size),
      min_segment_length_(min_segment_length),
      combiner_(combiner),
      name_(name) {}

CCostCalculator::~CCostCalculator() = default;

// Debug listings of the costs: a line per value of the chunk, numbered from 0.
void CCostCalculator::DumpCostMatrix(std::ofstream* file, double* pCost, std::uint16_t k) const {
    // k breakpoints make k + 1 segments: fewer values than they need have no cost, and get -1.
    const int meaningless = std::max(1, (k + 1) * min_segment_length_ - 1);
    std::fill_n(pCost, std::min<int>(meaningless, chunk_size_), -1.0);
    for (int j = 0; j < chunk_size_; ++j) {
        char cost[64];
        std::snprintf(cost, sizeof cost, "%7.2lf", pCost[j]);
        *file << "j: " << j << " cost: " << cost << "\n";
    }
}

void CCostCalculator::DumpBestIMatrix(std::ofstream* file, const std::uint16_t* pBestI) const {
    *file << "\n";
    for (int j = 0; j < chunk_size_; ++j) {
        *file << "j: " << j << " best i: " << pBestI[j] << "\n";
    }
}

}  // namespace segment
