#pragma once

#include <string>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/** A level in dB with one decimal, "-18.4"; a silence is "-inf". */
std::string decimal(double value);

/** A change in dB with its sign and one decimal; what rounds to nothing is "0.0". */
std::string signed_decimal(double value);

/** "+2.1 (-3.0 to +6.4)": the mean gain in dB, the least and the greatest. */
std::string gain_text(const Leveling& leveling);

}  // namespace quorvane
