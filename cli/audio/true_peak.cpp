#include "cli/audio/true_peak.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace cli {

namespace {

constexpr std::size_t kPieceFrames = 64;
constexpr double kRounding = 1.0001;  // far more than the interpolator's single precision adds

/** The largest absolute sample. Floats without their sign compare like the integers of their bits,
 * which processors compare side by side. */
float peak_of(const float* samples, std::size_t count) {
    std::int32_t peak = 0;
    for (std::size_t i = 0; i < count; ++i) {
        std::int32_t bits = 0;
        std::memcpy(&bits, samples + i, sizeof bits);
        bits &= 0x7FFFFFFF;
        peak = bits > peak ? bits : peak;
    }
    float value = 0;
    std::memcpy(&value, &peak, sizeof value);
    return value;
}

}  // namespace

LoudnessMeter make_loudness_meter(int channels, int sample_rate_hz, int mode) {
    LoudnessMeter meter(ebur128_init(static_cast<unsigned>(channels),
                                     static_cast<unsigned long>(sample_rate_hz), mode));
    if (!meter) {
        throw std::runtime_error(
            fmt::format("cannot measure {} channels at {} Hz", channels, sample_rate_hz));
    }
    return meter;
}

TruePeakMeter::TruePeakMeter(int channels, int sample_rate_hz)
    : channels_(static_cast<std::size_t>(channels)),
      meter_(make_loudness_meter(channels, sample_rate_hz, EBUR128_MODE_TRUE_PEAK)) {
    learn_interpolator(sample_rate_hz);
    past_.assign(memory_ * channels_, 0.0F);
}

/**
 * Asks the library itself, so that the bound is right for whatever filter it has: the answer to a
 * single 1, the largest of the samples interpolated after each frame added up.
 */
void TruePeakMeter::learn_interpolator(int sample_rate_hz) {
    const LoudnessMeter meter = make_loudness_meter(1, sample_rate_hz, EBUR128_MODE_TRUE_PEAK);
    for (std::size_t frame = 0; frame < 2 * kPieceFrames; ++frame) {
        const float sample = frame == 0 ? 1.0F : 0.0F;
        double peak = 0;
        ebur128_add_frames_float(meter.get(), &sample, 1);
        ebur128_prev_true_peak(meter.get(), 0, &peak);
        gain_ += peak;
        if (peak > 0) {
            memory_ = frame;
        }
    }
    gain_ *= kRounding;
    if (memory_ > kPieceFrames) {
        gain_ = std::numeric_limits<double>::infinity();  // longer than we can see: skip nothing
    }
}

void TruePeakMeter::add(const float* samples, std::size_t frames) {
    past_.insert(past_.end(), samples, samples + frames * channels_);
    const float* const first = past_.data() + memory_ * channels_;
    for (std::size_t frame = 0; frame < frames; frame += kPieceFrames) {
        const float* const piece = first + frame * channels_;
        const std::size_t piece_frames = std::min(kPieceFrames, frames - frame);
        const double peak = static_cast<double>(peak_of(piece, piece_frames * channels_));
        sample_peak_ = std::max(sample_peak_, peak);
        true_peak_ = std::max(true_peak_, sample_peak_);
        const bool may_beat = std::max(peak, peak_before_) * gain_ > true_peak_;
        if (may_beat) {
            if (!fed_) {
                interpolate(piece - memory_ * channels_, memory_);
            }
            interpolate(piece, piece_frames);
            true_peak_ = std::max(true_peak_, peak_of_last_call());
        }
        fed_ = may_beat;
        peak_before_ = piece_frames < memory_ ? std::max(peak, peak_before_) : peak;
    }
    past_.erase(past_.begin(), past_.end() - static_cast<std::ptrdiff_t>(memory_ * channels_));
}

void TruePeakMeter::interpolate(const float* samples, std::size_t frames) {
    if (ebur128_add_frames_float(meter_.get(), samples, frames) != EBUR128_SUCCESS) {
        throw std::runtime_error("not enough memory to measure the loudness");
    }
}

double TruePeakMeter::peak_of_last_call() const {
    double peak = 0;
    for (unsigned channel = 0; channel < channels_; ++channel) {
        double of_channel = 0;
        ebur128_prev_true_peak(meter_.get(), channel, &of_channel);
        peak = std::max(peak, of_channel);
    }
    return peak;
}

}  // namespace cli
