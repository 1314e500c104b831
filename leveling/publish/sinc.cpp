#include "leveling/publish/sinc.h"

#include <cmath>
#include <numeric>

#include "leveling/audio/portable_math.h"

namespace quorvane {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kBeta = 7.0;  // Kaiser's shape: side lobes near -70 dB

/** Modified Bessel function of the first kind and order zero, by its power series. */
double bessel_i0(double x) {
    double sum = 1;
    double term = 1;
    for (int k = 1; term > 1e-15 * sum; ++k) {
        term *= (x / 2 / k) * (x / 2 / k);
        sum += term;
    }
    return sum;
}

}  // namespace

std::vector<double> sinc_weights(double fraction, std::size_t taps, double cutoff) {
    std::vector<double> weights;
    const double half = static_cast<double>(taps) / 2;
    for (std::size_t i = 0; i < taps; ++i) {
        const double t = static_cast<double>(i) - (half - 1) - fraction;
        const double across = t / half;
        const double window =
            std::fabs(across) < 1
                ? bessel_i0(kBeta * std::sqrt(1 - across * across)) / bessel_i0(kBeta)
                : 0;
        const double turns = cutoff * t;
        weights.push_back(window * (t == 0 ? 1 : portable_sin_pi(turns) / (kPi * turns)));
    }
    const double sum = std::accumulate(weights.begin(), weights.end(), 0.0);
    for (double& weight : weights) {
        weight /= sum;
    }
    return weights;
}

}  // namespace quorvane
