#include "leveling/words/levels.h"

#include <fmt/format.h>

#include <cmath>

namespace quorvane {

std::string decimal(double value) {
    if (!std::isfinite(value)) {
        return "-inf";
    }
    // No "-0.0" for what rounds to nothing.
    return fmt::format("{:.1f}", std::fabs(value) < 0.05 ? 0.0 : value);
}

std::string signed_decimal(double value) {
    return std::fabs(value) < 0.05 ? "0.0" : fmt::format("{:+.1f}", value);
}

std::string gain_text(const Leveling& leveling) {
    return fmt::format("{} ({} to {})", signed_decimal(leveling.mean_gain_db),
                       signed_decimal(leveling.least_gain_db),
                       signed_decimal(leveling.greatest_gain_db));
}

}  // namespace quorvane
