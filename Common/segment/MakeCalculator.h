#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "Common/segment/CostCalculatorMSD0.h"
#include "Common/segment/CostCalculatorSSD0.h"

namespace segment {

/**
 * Makes the calculator of each chunk. The search requests chunks one after another and knows
 * neither the formula nor how costs combine: a new cost function is a class here and a name in
 * segment.cpp.
 */
class CMakeAnyCalculator {
  public:
    virtual ~CMakeAnyCalculator() = default;

    /** The caller owns the result, which has read chunk_size values from the stream. */
    virtual CCostCalculatorSD* make(std::istream* is,
                                    const std::string& name,
                                    std::uint16_t chunk_size,
                                    std::uint16_t min_segment_length) const = 0;
};

/** The combiner that belongs to a calculator. */
template <class Calculator>
struct CombinerOf;

template <>
struct CombinerOf<CCostCalculatorSSD0> {
    using Type = SumCostCombiner;
};

template <>
struct CombinerOf<CCostCalculatorMSD0> {
    using Type = MaxCostCombiner;
};

template <class Calculator>
class CMakeCalculator : public CMakeAnyCalculator {
  public:
    CCostCalculatorSD* make(std::istream* is,
                            const std::string& name,
                            std::uint16_t chunk_size,
                            std::uint16_t min_segment_length) const override {
        return new Calculator(is, name, chunk_size, min_segment_length,
                              new typename CombinerOf<Calculator>::Type);
    }
};

}  // namespace segment
