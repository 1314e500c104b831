#include "leveling/audio/portable_math.h"

#include <cmath>

/*
 * Each argument is reduced to a small interval around 0, where the Taylor series has converged
 * after its given number of terms. floor and ldexp are exact in every library.
 */

namespace quorvane {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kLn2High = 6.93147180369123816490e-01;  // ln 2 in two parts: the first has zeros
constexpr double kLn2Low = 1.90821492927058770002e-10;   // at its end, so that k times it is exact
constexpr double kLn10 = 2.30258509299404568402;
constexpr int kExpTerms = 18;  // of |x| <= ln 2 / 2: the next one is below 1e-24
constexpr int kSinTerms = 12;  // of |x| <= pi / 2: the next one is below 1e-20

}  // namespace

// Argument reduction by ln 2, then a series: additions and multiplications alone.
double portable_exp(double x) {
    const double power = std::floor(x / (kLn2High + kLn2Low) + 0.5);
    const double rest = (x - power * kLn2High) - power * kLn2Low;
    double sum = 1;
    for (int term = kExpTerms; term > 0; --term) {
        sum = 1 + sum * rest / term;
    }
    return std::ldexp(sum, static_cast<int>(power));
}

// For windows and roots of unity, whose arguments are fractions of a turn.
double portable_sin_pi(double x) {
    const double nearest = std::floor(x + 0.5);
    const double angle = kPi * (x - nearest);
    double sum = 1;
    for (int term = kSinTerms; term > 0; --term) {
        sum = 1 - sum * angle * angle / (2.0 * term * (2.0 * term + 1));
    }
    const bool odd = std::floor(nearest / 2) * 2 != nearest;
    return odd ? -angle * sum : angle * sum;
}

double portable_amplitude(double db) {
    return portable_exp(db * (kLn10 / 20));
}

}  // namespace quorvane
