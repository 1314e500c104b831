#include "leveling/audio/true_peak.h"

#include <algorithm>
#include <cmath>

#include "Common/audio/wide_loops.h"
#include "leveling/audio/sample_sums.h"

namespace quorvane {
namespace {

// Interpolated at a time: short enough for the processor's first cache.
constexpr std::size_t kPieceFrames = 64;
constexpr std::size_t kTaps = 49;         // over all phases
constexpr float kRounding = 1.0001F;      // far more than single precision adds
constexpr double kAlmostNothing = 1e-10;  // a sine's value at a multiple of pi

/**
 * The sums of one phase over a whole piece, which has taps - 1 samples before it: sums[i] is the
 * weighted sum of taps samples back from piece[i] on.
 */
QUORVANE_WIDE_LOOP
void interpolate(const float* piece, const float* weights, std::size_t taps, float* sums) {
    constexpr std::size_t kTogether = 32;  // sums that the compiler keeps in registers
    static_assert(kPieceFrames % kTogether == 0);
    for (std::size_t begin = 0; begin < kPieceFrames; begin += kTogether) {
        float here[kTogether];
        for (std::size_t i = 0; i < kTogether; ++i) {
            here[i] = weights[0] * piece[begin + i];
        }
        for (std::size_t tap = 1; tap < taps; ++tap) {
            const float weight = weights[tap];
            const float* const from = piece + begin - tap;
            for (std::size_t i = 0; i < kTogether; ++i) {
                here[i] += weight * from[i];
            }
        }
        std::copy_n(here, kTogether, sums + begin);
    }
}

/** One channel of interleaved samples. */
template <std::size_t kChannels>
void take_every(const float* samples, std::size_t frames, float* to) {
    for (std::size_t i = 0; i < frames; ++i) {
        to[i] = samples[i * kChannels];
    }
}

/** libebur128's choice of how many values it puts in the place of one. */
std::size_t factor_for(int sample_rate_hz) {
    return sample_rate_hz < 96000 ? 4 : sample_rate_hz < 192000 ? 2 : 1;
}

}  // namespace

TruePeakMeter::TruePeakMeter(int channels, int sample_rate_hz)
    : lines_(static_cast<std::size_t>(channels)) {
    make_weights(factor_for(sample_rate_hz));
    for (Line& line : lines_) {
        line.samples.assign(memory_ + kPieceFrames, 0.0F);
    }
}

void TruePeakMeter::make_weights(std::size_t factor) {
    // Phase 0 gives the samples themselves, delayed.
    for (std::size_t phase = 1; phase < factor; ++phase) {
        std::vector<float> weights;
        double sum = 0;
        for (std::size_t i = phase; i < kTaps; i += factor) {
            const double place = static_cast<double>(i) - (kTaps - 1) / 2.0;
            const double angle = place * M_PI / static_cast<double>(factor);
            const double sinc = std::fabs(angle) < kAlmostNothing ? 1 : std::sin(angle) / angle;
            const double window =
                0.5 * (1 - std::cos(2 * M_PI * static_cast<double>(i) / (kTaps - 1)));
            weights.push_back(static_cast<float>(sinc * window));
            sum += std::fabs(sinc * window);
        }
        gain_ = std::max(gain_, static_cast<float>(sum) * kRounding);
        memory_ = std::max(memory_, weights.size() - 1);
        weights_.push_back(weights);
    }
}

void TruePeakMeter::add(const float* samples, std::size_t frames) {
    for (std::size_t channel = 0; channel < lines_.size(); ++channel) {
        Line& line = lines_[channel];
        line.samples.resize(memory_ + frames + kPieceFrames);
        float* const to = line.samples.data() + memory_;
        if (lines_.size() == 1) {
            std::copy_n(samples, frames, to);
        } else if (lines_.size() == 2) {
            take_every<2>(samples + channel, frames, to);
        } else {
            for (std::size_t i = 0; i < frames; ++i) {
                to[i] = samples[i * lines_.size() + channel];
            }
        }
        look_at(line, frames);
        std::copy_n(line.samples.data() + frames, memory_, line.samples.data());
    }
}

void TruePeakMeter::append(const TruePeakMeter& later) {
    sample_peak_ = std::max(sample_peak_, later.sample_peak_);
    true_peak_ = std::max(true_peak_, later.true_peak_);
}

void TruePeakMeter::look_at(Line& line, std::size_t frames) {
    float sums[kPieceFrames];
    for (std::size_t frame = 0; frame < frames; frame += kPieceFrames) {
        const float* const piece = line.samples.data() + memory_ + frame;
        const std::size_t here = std::min(kPieceFrames, frames - frame);
        const float peak = peak_of(piece, here);
        sample_peak_ = std::max(sample_peak_, peak);
        true_peak_ = std::max(true_peak_, peak);
        if (std::max(peak, line.peak_before) * gain_ > true_peak_) {
            for (const std::vector<float>& weights : weights_) {
                interpolate(piece, weights.data(), weights.size(), sums);
                true_peak_ = std::max(true_peak_, peak_of(sums, here));
            }
        }
        line.peak_before = here < memory_ ? std::max(peak, line.peak_before) : peak;
    }
}

}  // namespace quorvane
