#pragma once

#include "Common/segment/CostCalculatorSD.h"

namespace segment {

/**
 * The sum of squared deviations from the segments' means. Normalised it is the RMS deviation of all
 * values of the chunk from the means of their segments.
 */
class CCostCalculatorSSD0 : public CCostCalculatorSD {
  public:
    using CCostCalculatorSD::CCostCalculatorSD;

    double CostOneSegment(std::uint16_t i, std::uint16_t j) const override;
    double GetFitValue(std::uint16_t i, std::uint16_t j) const override;
    double NormalizedCost(double cost) const override;

  protected:
    Split BestSplit(const double* pCost, int first, int last, int j) const override;
};

}  // namespace segment
