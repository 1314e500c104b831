#include "leveling/audio/power_meter.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "leveling/audio/sample_sums.h"

namespace quorvane {
namespace {

constexpr std::size_t kPauseBlocks = 5;  // half a second
constexpr double kSoundDbfs = -50;       // RMS of a block that is more than room tone

/** -infinity for silence. */
double power_to_db(double power) {
    return 10 * std::log10(power);  // minus infinity for 0
}

}  // namespace

PowerMeter::PowerMeter(int channels, int sample_rate_hz)
    : block_samples_(static_cast<std::size_t>(block_frames(sample_rate_hz)) *
                     static_cast<std::size_t>(channels)) {}

std::int64_t PowerMeter::block_frames(int sample_rate_hz) {
    return std::max(sample_rate_hz / 10, 1);
}

void PowerMeter::add(const float* samples, std::size_t count) {
    while (count > 0) {
        const std::size_t here = std::min(count, block_samples_ - in_block_);
        block_ += sum_of_squares(samples, here);
        in_block_ += here;
        if (in_block_ == block_samples_) {
            blocks_.push_back(block_);
            block_ = 0;
            in_block_ = 0;
        }
        samples += here;
        count -= here;
    }
}

void PowerMeter::append(const PowerMeter& next) {
    blocks_.insert(blocks_.end(), next.blocks_.begin(), next.blocks_.end());
    block_ = next.block_;
    in_block_ = next.in_block_;
}

double PowerMeter::mean_square() const {
    const std::size_t samples = blocks_.size() * block_samples_ + in_block_;
    const double sum = std::accumulate(blocks_.begin(), blocks_.end(), 0.0) + block_;
    return samples > 0 ? sum / static_cast<double>(samples) : 0;
}

double PowerMeter::rms_db() const {
    return power_to_db(mean_square());
}

double PowerMeter::quietest_db() const {
    double quietest = -1;  // none yet
    for (std::size_t end = kPauseBlocks; end <= blocks_.size(); ++end) {
        const auto last = blocks_.begin() + static_cast<std::ptrdiff_t>(end);
        const double power = std::accumulate(last - kPauseBlocks, last, 0.0) /
                             (kPauseBlocks * static_cast<double>(block_samples_));
        if (quietest < 0 || power < quietest) {
            quietest = power;
        }
    }
    return quietest < 0 ? rms_db() : power_to_db(quietest);
}

// block: a sum of squares over a whole block.
bool PowerMeter::sounds(double block) const {
    return power_to_db(block / static_cast<double>(block_samples_)) > kSoundDbfs;
}

std::size_t PowerMeter::quiet_blocks_at_head() const {
    const auto first = std::find_if(blocks_.begin(), blocks_.end(),
                                    [this](double block) { return sounds(block); });
    return static_cast<std::size_t>(first - blocks_.begin());
}

std::size_t PowerMeter::quiet_blocks_at_tail() const {
    const auto last = std::find_if(blocks_.rbegin(), blocks_.rend(),
                                   [this](double block) { return sounds(block); });
    return static_cast<std::size_t>(last - blocks_.rbegin());
}

}  // namespace quorvane
