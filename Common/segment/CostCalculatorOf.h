#pragma once

#include "Common/segment/CostCalculatorSD.h"
#include "Common/segment/search_kernel.h"
#include "Common/segment/segment_util.h"

namespace segment {

/** A calculator from its formula for one segment and the combiner that goes with it. */
template <class Formula, class Combiner>
class CostCalculatorOf : public CCostCalculatorSD {
  public:
    using CCostCalculatorSD::CCostCalculatorSD;

    double CostOneSegment(std::uint16_t i, std::uint16_t j) const override {
        const double length = static_cast<std::uint16_t>(j - i + 1);
        const double cost = Formula::cost(sum(i, j), sum_of_squares(i, j), length);
        // Sums of squares never fall below the square of the sum over n, but their roundings do.
        require(!(cost < -rounding_), "dCost >= 0.0");
        return cost > 0.0 ? cost : 0.0;
    }

    double GetFitValue(std::uint16_t i, std::uint16_t j) const override { return mean(i, j); }

    const std::vector<SearchKernel>& kernels() const override {
        return search_kernels<Formula, Combiner>();
    }

  protected:
    bool superadditive() const override { return Formula::kSuperadditive; }
};

}  // namespace segment
