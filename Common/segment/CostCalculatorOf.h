#pragma once

#include <cstring>
#include <limits>

#include "Common/segment/CostCalculatorSD.h"
#include "Common/segment/segment_util.h"

namespace segment {

namespace lanes {

constexpr int kWidth = 2;
using Lanes = double __attribute__((vector_size(kWidth * sizeof(double))));

inline Lanes load(const double* values) {
    Lanes lanes;
    std::memcpy(&lanes, values, sizeof lanes);
    return lanes;
}

inline void store(double* values, const Lanes& lanes) {
    std::memcpy(values, &lanes, sizeof lanes);
}

inline Lanes all(double value) {
    return Lanes{value, value};
}

/** b where b < a, else a, so that a b which is not a number is passed over. */
template <class Value>
Value lower(const Value& a, const Value& b) {
    return b < a ? b : a;
}

}  // namespace lanes

template <class Formula>
double CCostCalculatorSD::segment_cost(std::uint16_t i, std::uint16_t j) const {
    const double length = static_cast<std::uint16_t>(j - i + 1);
    const double cost = Formula::cost(sum(i, j), sum_of_squares(i, j), length);
    require(!(cost < -rounding_), "dCost >= 0.0");
    return cost > 0.0 ? cost : 0.0;
}

/**
 * The totals of all candidates go to a scratch array, a few side by side; only when the least of
 * them is known is it looked for, from the front. The arithmetic of each total is that of
 * segment_cost and the combiner.
 */
template <class Formula, class Combiner>
CCostCalculatorSD::Split CCostCalculatorSD::best_split(const double* pCost,
                                                       int first,
                                                       int last,
                                                       int j) const {
    using lanes::Lanes;
    const double* const sums = pSum.get();
    const double* const squares = pSumSq.get();
    const double* const lengths = lengths_.get() + (GetChunkSize() - j);  // lengths[i] is j - i
    double* const totals = totals_.get();

    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    constexpr int kStep = 2 * lanes::kWidth;
    const Lanes zero = lanes::all(0.0);
    const Lanes sums_j = lanes::all(sums[j]);
    const Lanes squares_j = lanes::all(squares[j]);
    Lanes least[2] = {lanes::all(kInfinity), lanes::all(kInfinity)};
    Lanes least_raw[2] = {zero, zero};

    int i = first;
    for (; i + kStep <= last + 1; i += kStep) {
        for (int half = 0; half < 2; ++half) {
            const int at = i + half * lanes::kWidth;
            const Lanes raw =
                Formula::cost(sums_j - lanes::load(sums + at),
                              squares_j - lanes::load(squares + at), lanes::load(lengths + at));
            const Lanes cost = raw > zero ? raw : zero;
            const Lanes total = Combiner::of(lanes::load(pCost + at), cost);
            lanes::store(totals + at, total);
            least[half] = lanes::lower(least[half], total);
            least_raw[half] = lanes::lower(least_raw[half], raw);
        }
    }
    double lowest = kInfinity;
    double lowest_raw = 0.0;
    for (int half = 0; half < 2; ++half) {
        for (int lane = 0; lane < lanes::kWidth; ++lane) {
            lowest = lanes::lower(lowest, least[half][lane]);
            lowest_raw = lanes::lower(lowest_raw, least_raw[half][lane]);
        }
    }
    for (; i <= last; ++i) {
        const double raw = Formula::cost(sums[j] - sums[i], squares[j] - squares[i], lengths[i]);
        totals[i] = Combiner::of(pCost[i], raw > 0.0 ? raw : 0.0);
        lowest = lanes::lower(lowest, totals[i]);
        lowest_raw = lanes::lower(lowest_raw, raw);
    }
    require(lowest_raw >= -rounding_, "dCost >= 0.0");
    for (i = first; i <= last; ++i) {
        if (totals[i] == lowest) {
            return {lowest, i};
        }
    }
    return {lowest, -1};
}

/** A calculator from its formula for one segment and the combiner that goes with it. */
template <class Formula, class Combiner>
class CostCalculatorOf : public CCostCalculatorSD {
  public:
    using CCostCalculatorSD::CCostCalculatorSD;

    double CostOneSegment(std::uint16_t i, std::uint16_t j) const override {
        return segment_cost<Formula>(i, j);
    }

    double GetFitValue(std::uint16_t i, std::uint16_t j) const override { return mean(i, j); }

  protected:
    Split BestSplit(const double* pCost, int first, int last, int j) const override {
        return best_split<Formula, Combiner>(pCost, first, last, j);
    }
};

}  // namespace segment
