#include "leveling/audio/peak_curve.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "Common/audio/wide_loops.h"

namespace quorvane {
namespace {

constexpr std::int64_t kMostSteps = 1000;
constexpr int kStepsPerSecond = 50;  // at most, 20 ms each

/** Skips what is not a number. Several peaks side by side do not wait for each other. */
QUORVANE_WIDE_LOOP float largest(const float* samples, std::size_t count) {
    constexpr std::size_t kPeaks = 32;
    float peaks[kPeaks] = {};
    const auto take = [&peaks, samples](std::size_t i, std::size_t k) {
        const float size = std::fabs(samples[i]);
        peaks[k] = size > peaks[k] ? size : peaks[k];
    };
    std::size_t i = 0;
    for (; i + kPeaks <= count; i += kPeaks) {
        for (std::size_t k = 0; k < kPeaks; ++k) {
            take(i + k, k);
        }
    }
    for (; i < count; ++i) {
        take(i, 0);
    }
    return *std::max_element(std::begin(peaks), std::end(peaks));
}

}  // namespace

PeakCurve::PeakCurve(int channels, int sample_rate_hz, std::int64_t frames, std::int64_t begin)
    : channels_(static_cast<std::size_t>(channels)),
      sample_rate_hz_(sample_rate_hz),
      step_frames_(std::max<std::int64_t>(
          {1, (frames + kMostSteps - 1) / kMostSteps, sample_rate_hz / kStepsPerSecond})),
      first_(begin / step_frames_),
      end_(begin) {}

void PeakCurve::add(const float* samples, std::size_t frames) {
    while (frames > 0) {
        const auto here =
            std::min(frames, static_cast<std::size_t>(step_frames_ - end_ % step_frames_));
        const auto step = static_cast<std::size_t>(end_ / step_frames_ - first_);
        if (step == peaks_.size()) {
            peaks_.push_back(0);
        }
        peaks_[step] = std::max(peaks_[step], largest(samples, here * channels_));
        samples += here * channels_;
        frames -= here;
        end_ += static_cast<std::int64_t>(here);
    }
}

void PeakCurve::append(const PeakCurve& next) {
    for (std::size_t i = 0; i < next.peaks_.size(); ++i) {
        const std::size_t step = static_cast<std::size_t>(next.first_ - first_) + i;
        if (step < peaks_.size()) {
            peaks_[step] = std::max(peaks_[step], next.peaks_[i]);
        } else {
            peaks_.push_back(next.peaks_[i]);
        }
    }
    end_ = next.end_;
}

Curve PeakCurve::dbfs() const {
    Curve curve;
    curve.step_s = static_cast<double>(step_frames_) / sample_rate_hz_;
    for (const float peak : peaks_) {
        // In tenths, which are finer than any drawing; the sum keeps zero from having a sign.
        curve.values.push_back(std::round(200 * std::log10(static_cast<double>(peak))) / 10 + 0.0);
    }
    return curve;
}

}  // namespace quorvane
