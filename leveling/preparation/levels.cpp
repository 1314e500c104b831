#include "leveling/preparation/levels.h"

#include <algorithm>
#include <cmath>

#include "leveling/audio/portable_math.h"

namespace quorvane {
namespace {

constexpr double kLeastPower = 1e-20;
constexpr double kPerDb = 1e4;  // steps that a level is rounded to
constexpr double kLn2 = 6.93147180559945309417e-01;
constexpr double kTenOverLn10 = 4.34294481903251827651;
constexpr double kHalfRoot = 7.07106781186547524401e-01;
constexpr int kTerms = 12;  // of |z| <= 0.172: the next one is below 1e-20

/** ln x = 2 artanh((x - 1) / (x + 1)), for x between the root of 1/2 and the root of 2. */
double log_near_one(double x) {
    const double z = (x - 1) / (x + 1);
    double sum = 0;
    for (int term = kTerms; term >= 0; --term) {
        sum = sum * z * z + 1.0 / (2 * term + 1);
    }
    return 2 * z * sum;
}

}  // namespace

double level_of_power(double power) {
    if (!(power > kLeastPower)) {
        return kSilence_db;
    }
    int exponent = 0;
    double mantissa = std::frexp(power, &exponent);
    if (mantissa < kHalfRoot) {
        mantissa *= 2;
        --exponent;
    }
    const double level = (exponent * kLn2 + log_near_one(mantissa)) * kTenOverLn10;
    return std::max(kSilence_db, std::floor(level * kPerDb + 0.5) / kPerDb);
}

double level_of_amplitude(double amplitude) {
    return level_of_power(amplitude * amplitude);
}

double power_of_level(double db) {
    return quorvane::portable_amplitude(2 * db);
}

}  // namespace quorvane
