#include "Common/segment/coverings.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "Common/segment/segment_util.h"
#include "Common/ss_util.h"

namespace segment {

namespace {

constexpr const char* kSource = "Common/segment/segment";
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// With the last count of the batch before they fill one vector, and all lanes.
constexpr int kFirstTogether = SearchKernel::kLanes - 1;
constexpr int kMostTogether = SearchKernel::kMostLanes - 1;

/** Values of j between two checks for cancellation. */
constexpr int kCancelInterval = 8;

int up_to_vectors(int count) {
    return (count + SearchKernel::kLanes - 1) / SearchKernel::kLanes * SearchKernel::kLanes;
}

}  // namespace

Coverings::Coverings(std::uint16_t chunk_size, std::uint16_t max_breakpoints)
    : row_size_(chunk_size) {
    const int most_lanes = up_to_vectors(std::min<int>(kMostTogether, max_breakpoints) + 1);
    batch_.blocks = up_to_vectors(chunk_size / SearchKernel::kBlock) + SearchKernel::kLanes;
    const std::size_t blocks = static_cast<std::size_t>(batch_.blocks);
    const std::size_t lanes = static_cast<std::size_t>(most_lanes);
    allocate(ppBestIMatrix, static_cast<std::size_t>(max_breakpoints) + 1, "ppBestIMatrix",
             kSource);
    allocate(pCostMatrix, lanes * chunk_size, "pCostMatrix", kSource);
    allocate(best_, lanes, "best", kSource);
    allocate(lengths_, chunk_size, "lengths", kSource);
    allocate(costs_, chunk_size, "costs", kSource);
    allocate(blocks_, (lanes + 3) * blocks, "blocks", kSource);
    allocate(needed_, blocks, "needed", kSource);
    allocate(latest_, lanes, "latest", kSource);
    batch_.table = pCostMatrix.get();
    batch_.best = best_.get();
    batch_.lengths = lengths_.get();
    batch_.costs = costs_.get();
    batch_.end_sums = blocks_.get();
    batch_.end_squares = batch_.end_sums + blocks;
    batch_.end_costs = batch_.end_squares + blocks;
    batch_.lowest = batch_.end_costs + blocks;
    batch_.needed = needed_.get();
    batch_.latest = latest_.get();
}

/** Lays the table out for count lanes after the first one, which is left to be filled in. */
void Coverings::begin_batch(int count) {
    batch_.count = count;
    batch_.width = up_to_vectors(count + 1);
    batch_.closed_blocks = 0;
    std::fill_n(batch_.table, static_cast<std::size_t>(batch_.chunk_size) * batch_.width,
                kInfinity);
    for (int r = 0; r < count; ++r) {
        const int k = batch_.first_k + r + 1;
        // Kept over all chunks, and never needed for a k that no chunk gets to.
        if (!ppBestIMatrix[k]) {
            allocate(ppBestIMatrix[k], row_size_, "ppBestIMatrix[k]", kSource);
        }
        best_[r] = ppBestIMatrix[k].get();
        batch_.latest[r] = k * batch_.shortest - 1;
    }
}

void Coverings::begin(const CCostCalculatorSD& calculator, const SearchKernel& kernel) {
    kernel_ = &kernel;
    calculator.describe(batch_);
    for (int t = 0; t < batch_.chunk_size; ++t) {
        lengths_[t] = batch_.chunk_size - t;
    }
    batch_.first_k = 0;
    begin_batch(0);
    for (int j = batch_.shortest - 1; j < batch_.chunk_size; ++j) {
        lanes_of(j)[0] = calculator.CostOneSegment(0, static_cast<std::uint16_t>(j));
    }
}

void Coverings::search_more(int most) {
    const int n = batch_.chunk_size;
    const int m = batch_.shortest;
    // The last lane of the batch before is the first of this one.
    std::vector<double> known(n);
    for (int j = 0; j < n; ++j) {
        known[j] = lanes_of(j)[batch_.count];
    }
    const int together = last_known() == 0 ? kFirstTogether : kMostTogether;
    batch_.first_k = last_known();
    begin_batch(std::min(together, most - batch_.first_k));
    for (int j = 0; j < n; ++j) {
        lanes_of(j)[0] = known[j];
    }
    for (int j = (batch_.first_k + 2) * m - 1; j < n; ++j) {
        if (j % kCancelInterval == 0) {
            check_cancelled();
        }
        require(kernel_->find_best(batch_, j), "dCost >= 0.0");
    }
}

double Coverings::least_cost(int k) const {
    return lanes_of(batch_.chunk_size - 1)[k - batch_.first_k];
}

}  // namespace segment
