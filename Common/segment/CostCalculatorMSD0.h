#pragma once

#include <cmath>

#include "Common/segment/CostCalculatorOf.h"

namespace segment {

/** Variance by the textbook identity E[x^2] - E[x]^2, from the sums over a segment. */
struct MeanSquaredDeviation {
    static constexpr bool kSuperadditive = false;

    static double cost(double sum, double sum_of_squares, double length) {
        return (sum_of_squares - sum * sum / length) / length;
    }
};

/**
 * The mean squared deviation from the segment's mean, of the worst segment. Normalised it is that
 * segment's standard deviation.
 */
class CCostCalculatorMSD0 : public CostCalculatorOf<MeanSquaredDeviation, MaxCostCombiner> {
  public:
    using CostCalculatorOf::CostCalculatorOf;

    double NormalizedCost(double cost) const override { return std::sqrt(cost); }
};

}  // namespace segment
