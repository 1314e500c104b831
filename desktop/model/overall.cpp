#include "desktop/model/overall.h"

#include <filesystem>

namespace desktop {

double Overall::weight_of(const std::string& input) {
    constexpr double kEachFile = 65536;  // starting a worker takes as long as so many bytes
    std::error_code error;
    const auto bytes = std::filesystem::file_size(input, error);
    return kEachFile + (error ? 0 : static_cast<double>(bytes));
}

void Overall::add(double weight) {
    all_weight_ += weight;
    ++files_;
}

void Overall::add_finished(quorvane::Outcome outcome) {
    ++files_;
    counts_.add(outcome);
}

void Overall::progressed(double weight, double from, double to) {
    done_weight_ += weight * (to - from);
}

void Overall::finished(double weight, double from, quorvane::Outcome outcome) {
    progressed(weight, from, 1);
    counts_.add(outcome);
}

// As if the rest went as fast as what is done.
std::optional<double> Overall::seconds_left(double elapsed_s) const {
    // Earlier than this the guess would jump about, and a wrong figure is worse than none.
    constexpr double kLeastSeconds = 2;
    constexpr double kLeastFraction = 0.02;
    if (elapsed_s < kLeastSeconds || fraction() < kLeastFraction) {
        return std::nullopt;
    }
    return elapsed_s * (1 - fraction()) / fraction();
}

}  // namespace desktop
