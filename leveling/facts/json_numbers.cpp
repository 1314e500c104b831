#include "leveling/facts/json_numbers.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>

namespace quorvane {
namespace {

constexpr double kSilence = -std::numeric_limits<double>::infinity();
constexpr double kMost_db = 1000;  // 64-bit floats hold no more than ±6000 dB, sound ±200
// Behind digital silence a filter fades out to the least power that a double holds: -3233 dB.
constexpr double kLeast_db = -3300;

}  // namespace

nlohmann::ordered_json number(double value) {
    if (!std::isfinite(value)) {
        return nullptr;
    }
    return std::round(value * 1000) / 1000;
}

double number_back(const nlohmann::ordered_json& json) {
    return json.is_null() ? kSilence : json.get<double>();
}

double level_back(const nlohmann::ordered_json& json) {
    const double level = number_back(json);
    if (level > kMost_db || (level < kLeast_db && level != kSilence)) {
        throw FactsError(fmt::format("{} dB is not a possible level of a recording", level));
    }
    return level;
}

}  // namespace quorvane
