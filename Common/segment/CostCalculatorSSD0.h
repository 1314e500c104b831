#pragma once

#include <cmath>

#include "Common/segment/CostCalculatorOf.h"

namespace segment {

/** Sum of (x - mean)^2 = sum of x^2 - (sum of x)^2 / n, from the sums over a segment. */
struct SumOfSquaredDeviations {
    /** Each of two pieces deviates less from its own mean than from that of both. */
    static constexpr bool kSuperadditive = true;

    static double cost(double sum, double sum_of_squares, double length) {
        return sum_of_squares - sum * sum / length;
    }
};

/**
 * The sum of squared deviations from the segments' means. Normalised it is the RMS deviation of all
 * values of the chunk from the means of their segments.
 */
class CCostCalculatorSSD0 : public CostCalculatorOf<SumOfSquaredDeviations, SumCostCombiner> {
  public:
    using CostCalculatorOf::CostCalculatorOf;

    double NormalizedCost(double cost) const override {
        require(cost >= 0.0, "dCost >= 0.0");
        return std::sqrt(cost / GetChunkSize());
    }
};

}  // namespace segment
