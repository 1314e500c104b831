#pragma once

#include "Common/segment/CostCalculatorSD.h"

namespace segment {

/**
 * The mean squared deviation from the segment's mean, of the worst segment. Normalised it is that
 * segment's standard deviation.
 */
class CCostCalculatorMSD0 : public CCostCalculatorSD {
  public:
    using CCostCalculatorSD::CCostCalculatorSD;

    double CostOneSegment(std::uint16_t i, std::uint16_t j) const override;
    double GetFitValue(std::uint16_t i, std::uint16_t j) const override;
    double NormalizedCost(double cost) const override;

  protected:
    Split BestSplit(const double* pCost, int first, int last, int j) const override;
};

}  // namespace segment
