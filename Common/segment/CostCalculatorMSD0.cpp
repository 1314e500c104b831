#include "Common/segment/CostCalculatorMSD0.h"

#include <cmath>

#include "Common/segment/best_split.h"

namespace segment {

namespace {

struct MeanSquaredDeviation {
    template <class Value>
    static Value cost(const Value& sum, const Value& sum_of_squares, const Value& length) {
        return (sum_of_squares - sum * sum / length) / length;
    }
};

}  // namespace

double CCostCalculatorMSD0::CostOneSegment(std::uint16_t i, std::uint16_t j) const {
    return segment_cost<MeanSquaredDeviation>(i, j);
}

double CCostCalculatorMSD0::GetFitValue(std::uint16_t i, std::uint16_t j) const {
    return mean(i, j);
}

double CCostCalculatorMSD0::NormalizedCost(double cost) const {
    return std::sqrt(cost);
}

CCostCalculatorSD::Split CCostCalculatorMSD0::BestSplit(const double* pCost,
                                                        int first,
                                                        int last,
                                                        int j) const {
    return best_split<MeanSquaredDeviation, MaxCostCombiner>(pCost, first, last, j);
}

}  // namespace segment
