#include "leveling/findings/flat_tops.h"

#include <algorithm>

namespace quorvane {
namespace {

constexpr float kLeastLevel = 0.05F;      // -26 dBFS: below it steps of 16 bits look flat
constexpr float kNear = 1 - 1.0F / 8192;  // of the extreme: 0.001 dB, four steps of 16 bits
constexpr int kRunsPerSecond = 16000;     // a run lasts 1/16000 s, and three samples at least
constexpr std::size_t kLeastRun = 3;

}  // namespace

FlatTops::FlatTops(int sample_rate_hz)
    : least_run_(std::max(kLeastRun, static_cast<std::size_t>(sample_rate_hz / kRunsPerSecond))) {}

void FlatTops::clear() {
    run_ = 0;
    samples_ = 0;
    runs_ = 0;
    places_.clear();
}

void FlatTops::count_run(std::uint32_t tenth) {
    if (run_ >= least_run_) {
        samples_ += static_cast<double>(run_);
        runs_ += 1;
        if (places_.empty() || places_.back().tenth != tenth) {
            places_.push_back({tenth, 0});
        }
        places_.back().samples += static_cast<std::uint32_t>(run_);
    }
    run_ = 0;
}

void FlatTops::add(
    const float* samples, std::size_t count, float polarity, float highest, std::uint32_t tenth) {
    if (highest < level_ * kNear || highest < kLeastLevel) {
        count_run(tenth);
        return;
    }
    if (highest * kNear > level_) {
        clear();
    }
    level_ = std::max(level_, highest);
    const float from = level_ * kNear;
    for (std::size_t i = 0; i < count; ++i) {
        if (samples[i] * polarity >= from) {
            ++run_;
        } else if (run_ > 0) {
            count_run(tenth);
        }
    }
}

void FlatTops::append(const FlatTops& later, std::uint32_t tenths) {
    if (later.level_ * kNear > level_) {
        clear();
    } else if (later.level_ < level_ * kNear) {
        return;
    }
    level_ = std::max(level_, later.level_);
    samples_ += later.samples_;
    runs_ += later.runs_;
    for (const Place& place : later.places_) {
        places_.push_back({place.tenth + tenths, place.samples});
    }
}

}  // namespace quorvane
