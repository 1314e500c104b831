#pragma once

#include <nlohmann/json.hpp>
#include <string>

/*
 * Numbers of facts in JSON. They are rounded to thousandths. What has no level, silence, is null
 * there and minus infinity here.
 */

namespace quorvane {

/** Facts that no run has written, such as a level of 5000 dB. */
class FactsError : public nlohmann::json::exception {
  public:
    explicit FactsError(const std::string& what) : nlohmann::json::exception(0, what.c_str()) {}
};

/** JSON has no infinity: silence is null. */
nlohmann::ordered_json number(double value);

/** The inverse of number(), up to the rounding. */
double number_back(const nlohmann::ordered_json& json);

/** The same for a value in dB or a unit of that size. Throws FactsError on an impossible level. */
double level_back(const nlohmann::ordered_json& json);

}  // namespace quorvane
