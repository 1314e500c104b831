#include "leveling/publish/limiter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "leveling/audio/portable_math.h"

/*
 * From peaks to gains: each frame needs the gain that brings its peak to the ceiling. The least
 * one of a window ahead is held, so that the gain is down before the peak comes; a release in two
 * stages lets it up again. Two moving means in a row round the corners: a step becomes a smooth S,
 * which adds no clicks, and since the window is as long as both means together, no peak is missed.
 * The samples wait in a delay line for as long.
 *
 * The means run in integers. A running sum of doubles would drift, and after an hour the gain of a
 * silent stretch would not be 1 any more.
 */

namespace quorvane {
namespace {

constexpr double kAlmostOne = 1 - 1e-6;  // a gain above it, 0.00001 dB, counts as no reduction
constexpr double kStepsADb = 10000;
constexpr double kFixedPoint = 1099511627776.0;  // 2^40 steps between 0 and 1

/** At least one: a window of nothing has no least value. */
std::size_t frames_in(double seconds, int sample_rate_hz) {
    return std::max<std::size_t>(1, static_cast<std::size_t>(seconds * sample_rate_hz));
}

/** In dB, rounded so that the last bit of the library's logarithm decides nothing. */
double reduction_of(double gain) {
    return gain < kAlmostOne ? std::rint(-20 * std::log10(gain) * kStepsADb) / kStepsADb : 0;
}

/** The share of its way that a recursion of the first order goes in a frame. */
double share_a_frame(double time_constant_s, int sample_rate_hz) {
    return 1 - portable_exp(-1 / (time_constant_s * sample_rate_hz));
}

}  // namespace

void Reductions::add(double gain, double lowered) {
    ++frames_;
    least_gain_ = std::min(least_gain_, gain);
    const double counted = gain / lowered;
    if (counted < kAlmostOne) {
        ++counts_[static_cast<std::size_t>(counted * kBins)];
    }
}

double Reductions::most_db() const {
    return reduction_of(least_gain_);
}

double Reductions::share_above(double reduction_db) const {
    const auto end = static_cast<std::size_t>(portable_amplitude(-reduction_db) * kBins);
    std::uint64_t above = 0;
    for (std::size_t bin = 0; bin < std::min(end, kBins); ++bin) {
        above += counts_[bin];
    }
    return frames_ ? static_cast<double>(above) / static_cast<double>(frames_) : 0;
}

double Reductions::exceeded_by(double share) const {
    const double allowed = share * static_cast<double>(frames_);
    std::uint64_t above = 0;
    for (std::size_t bin = 0; bin < kBins; ++bin) {
        above += counts_[bin];
        if (static_cast<double>(above) > allowed) {
            return reduction_of((static_cast<double>(bin) + 0.5) / kBins);
        }
    }
    return 0;
}

// Values that a later one is below cannot be the least any more and go at once: each value comes
// and goes once, whatever the window's length.
double SlidingMinimum::next(double value) {
    const std::size_t size = ring_.size();
    while (held_ > 0 && ring_[(first_ + held_ - 1) % size].value >= value) {
        --held_;
    }
    ring_[(first_ + held_) % size] = {value, count_ + window_};
    ++held_;
    if (ring_[first_].leaves <= count_) {
        first_ = (first_ + 1) % size;
        --held_;
    }
    ++count_;
    return ring_[first_].value;
}

MovingMean::MovingMean(std::size_t window)
    : ring_(window, static_cast<std::int64_t>(kFixedPoint)),
      sum_(static_cast<std::int64_t>(window) * static_cast<std::int64_t>(kFixedPoint)) {}

double MovingMean::next(double value) {
    const auto fixed = static_cast<std::int64_t>(value * kFixedPoint);
    sum_ += fixed - ring_[at_];
    ring_[at_] = fixed;
    at_ = at_ + 1 == ring_.size() ? 0 : at_ + 1;
    return static_cast<double>(sum_) / (kFixedPoint * static_cast<double>(ring_.size()));
}

TruePeakLimiter::TruePeakLimiter(
    int channels, int sample_rate_hz, double gain, double ceiling, std::vector<double> lowered)
    : channels_(static_cast<std::size_t>(channels)),
      gain_(gain),
      ceiling_(ceiling),
      lowered_(std::move(lowered)),
      block_frames_(peak_block_frames(sample_rate_hz)),
      sustain_(share_a_frame(kSustainSeconds, sample_rate_hz)),
      quick_release_(share_a_frame(kQuickReleaseSeconds, sample_rate_hz)),
      release_(share_a_frame(kReleaseSeconds, sample_rate_hz)),
      attack_frames_(frames_in(kAttackSeconds / 2, sample_rate_hz)),
      // The means reach 2 (attack_frames_ - 1) frames back, and the frame itself has to be inside.
      latency_frames_(TruePeakFinder::kLatency + 2 * attack_frames_ - 1),
      unnoticed_(lowered_.empty() ? ceiling
                                  : ceiling * *std::min_element(lowered_.begin(), lowered_.end())),
      finder_(channels, unnoticed_),
      held_(2 * attack_frames_ + frames_in(kHoldSeconds, sample_rate_hz)),
      first_mean_(attack_frames_),
      second_mean_(attack_frames_),
      frames_to_rest_(4 * attack_frames_ + frames_in(kHoldSeconds, sample_rate_hz) +
                      frames_in(16 * kReleaseSeconds, sample_rate_hz)),
      frames_at_rest_(frames_to_rest_),
      frames_to_drop_(latency_frames_),
      delayed_(latency_frames_ * channels_, 0.0) {}

void TruePeakLimiter::expect(Peaks peaks) {
    finder_.set_unnoticed(peaks == Peaks::kPossible ? unnoticed_
                                                    : std::numeric_limits<double>::infinity());
}

double TruePeakLimiter::lowered_at(std::uint64_t frame) const {
    const std::uint64_t block = frame / block_frames_;
    return block < lowered_.size() ? lowered_[static_cast<std::size_t>(block)] : 1;
}

/** The first frame from the given one on that needs a look, while every gain inside is 1. */
std::size_t TruePeakLimiter::end_of_rest(std::size_t frame, std::size_t end) {
    if (!lowered_.empty() || frames_at_rest_ < frames_to_rest_) {
        return frame;
    }
    std::size_t next = frame;
    while (next < end && peaks_[next] <= ceiling_) {
        ++next;
    }
    reductions_.add_untouched(next - std::clamp(frames_to_drop_, frame, next));
    found_ += next - frame;
    return next;
}

double TruePeakLimiter::next_gain(double peak, double ceiling) {
    // A peak between two frames needs the gain in both.
    const double needed = peak > ceiling ? ceiling / peak : 1;
    const double wanted = std::min(needed, needed_before_);
    needed_before_ = needed;
    if (wanted < 1) {
        frames_at_rest_ = 0;
    }
    const double least = held_.next(wanted);
    sustained_ += (least < sustained_ ? sustain_ : release_) * (least - sustained_);
    released_ = std::min(least, released_ + quick_release_ * std::max(0.0, sustained_ - released_));
    if (released_ > kAlmostOne && least == 1) {
        sustained_ = 1;
        released_ = 1;
    }
    return second_mean_.next(first_mean_.next(released_));
}

void TruePeakLimiter::process(const double* samples, std::size_t frames, std::vector<double>& out) {
    const std::size_t kept = latency_frames_ * channels_;
    const std::size_t count = frames * channels_;
    delayed_.resize(kept + count);
    for (std::size_t i = 0; i < count; ++i) {
        delayed_[kept + i] = gain_ * samples[i];
    }
    peaks_.resize(frames);
    finder_.find(delayed_.data() + kept, frames, peaks_.data());
    constexpr std::uint64_t kLatency = TruePeakFinder::kLatency;
    for (std::size_t frame = end_of_rest(0, frames); frame < frames;
         frame = end_of_rest(frame + 1, frames)) {
        const double ceiling = lowered_.empty()
                                   ? ceiling_
                                   : ceiling_ * lowered_at(std::max(found_, kLatency) - kLatency);
        if (frames_at_rest_ >= frames_to_rest_ && peaks_[frame] <= ceiling) {
            // Nothing to limit, now or lately: the samples go out as they are.
            reductions_.add_untouched(frame >= frames_to_drop_ ? 1 : 0);
            ++found_;
            continue;
        }
        ++frames_at_rest_;
        const double gain = next_gain(peaks_[frame], ceiling);
        if (frame >= frames_to_drop_) {
            // The frame that goes out is latency_frames_ older than the one that came in.
            reductions_.add(gain, lowered_.empty() ? 1 : lowered_at(found_ - latency_frames_));
        }
        for (std::size_t channel = 0; channel < channels_; ++channel) {
            delayed_[frame * channels_ + channel] *= gain;
        }
        ++found_;
    }
    const std::size_t dropped = std::min(frames, frames_to_drop_);
    frames_to_drop_ -= dropped;
    const auto start = delayed_.begin();
    out.insert(out.end(), start + static_cast<std::ptrdiff_t>(dropped * channels_),
               start + static_cast<std::ptrdiff_t>(count));
    std::copy(start + static_cast<std::ptrdiff_t>(count), delayed_.end(), start);
}

void TruePeakLimiter::finish(std::vector<double>& out) {
    const std::vector<double> silence(latency_frames_ * channels_, 0.0);
    process(silence.data(), latency_frames_, out);
}

}  // namespace quorvane
