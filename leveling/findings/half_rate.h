#pragma once

#include <array>
#include <cstddef>
#include <vector>

namespace quorvane {

/**
 * Halves a sample rate, again and again where that is wanted, behind the half-band filter
 * (-1, 0, 9, 16, 9, 0, -1) / 32: the interpolator of J.-L. Lagrange for the middle of four points.
 */
class HalfRate {
  public:
    /** Appends what the next samples give. */
    void process(const float* samples, std::size_t count, std::vector<float>& to);

  private:
    static constexpr std::size_t kMemory = 6;

    std::vector<float> waiting_ = std::vector<float>(kMemory);  // the last samples first
};

}  // namespace quorvane
