#include "Common/segment/CostCalculatorSSD0.h"

#include <cmath>

#include "Common/segment/best_split.h"

namespace segment {

namespace {

struct SumOfSquaredDeviations {
    template <class Value>
    static Value cost(const Value& sum, const Value& sum_of_squares, const Value& length) {
        return sum_of_squares - sum * sum / length;
    }
};

}  // namespace

double CCostCalculatorSSD0::CostOneSegment(std::uint16_t i, std::uint16_t j) const {
    return segment_cost<SumOfSquaredDeviations>(i, j);
}

double CCostCalculatorSSD0::GetFitValue(std::uint16_t i, std::uint16_t j) const {
    return mean(i, j);
}

double CCostCalculatorSSD0::NormalizedCost(double cost) const {
    require(cost >= 0.0, "dCost >= 0.0");
    return std::sqrt(cost / GetChunkSize());
}

CCostCalculatorSD::Split CCostCalculatorSSD0::BestSplit(const double* pCost,
                                                        int first,
                                                        int last,
                                                        int j) const {
    return best_split<SumOfSquaredDeviations, SumCostCombiner>(pCost, first, last, j);
}

}  // namespace segment
