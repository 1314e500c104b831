#pragma once

#include <ebur128.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace cli {

struct CloseLoudnessMeter {
    void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
};

using LoudnessMeter = std::unique_ptr<ebur128_state, CloseLoudnessMeter>;

/** Throws std::runtime_error for channels and rates that the library does not measure. */
LoudnessMeter make_loudness_meter(int channels, int sample_rate_hz, int mode);

/**
 * The true peak of a recording after ITU-R BS.1770, annex 2: the largest absolute value of the
 * samples and of those that the library interpolates between them.
 *
 * Interpolating is most of the work of measuring, and nearly all of it is in vain: what a linear
 * filter makes of samples that are no larger than x is no larger than x times the sum of its
 * absolute coefficients. The frames are looked at in short pieces, and only a piece that could beat
 * the peak so far goes through the interpolator, with as many frames before it as the interpolator
 * remembers. The result is that of interpolating everything, to the bit.
 */
class TruePeakMeter {
  public:
    TruePeakMeter(int channels, int sample_rate_hz);

    /** The next frames, interleaved. */
    void add(const float* samples, std::size_t frames);

    /** Both linear, over all channels. The true peak is never below the sample peak. */
    double sample_peak() const { return sample_peak_; }

    double true_peak() const { return true_peak_; }

  private:
    void learn_interpolator(int sample_rate_hz);
    void interpolate(const float* samples, std::size_t frames);
    double peak_of_last_call() const;

    std::size_t channels_;
    LoudnessMeter meter_;
    double gain_ = 0;          // no interpolated sample is larger than this times the samples' peak
    std::size_t memory_ = 0;   // frames before a piece that have a part in its interpolation
    std::vector<float> past_;  // the last memory_ frames of the call before, then those of this one
    double peak_before_ = 0;   // of the piece before
    bool fed_ = true;          // the piece before went through the interpolator
    double sample_peak_ = 0;
    double true_peak_ = 0;
};

}  // namespace cli
