#pragma once

#include <cstddef>
#include <vector>

namespace quorvane {

/**
 * The true peak of a recording after ITU-R BS.1770-4, annex 2: the largest absolute value of the
 * samples and of those interpolated between them, four to a sample below 96 kHz and two below
 * 192 kHz. The interpolator is libebur128's, a sinc of 49 weights under the window of J. von Hann,
 * so that the figures are those of many other meters.
 *
 * Interpolating would be most of the work of measuring, and nearly all of it in vain: what a linear
 * filter makes of samples up to x is at most x times the sum of its
 * absolute weights. The frames are looked at in short pieces, and only where one could beat the
 * peak so far is anything interpolated. The result is that of interpolating everything.
 */
class TruePeakMeter {
  public:
    /** Any number of channels from 1, any rate in Hz. */
    TruePeakMeter(int channels, int sample_rate_hz);

    /** The next frames, interleaved. */
    void add(const float* samples, std::size_t frames);

    /** What a meter of frames that come later has found. */
    void append(const TruePeakMeter& later);

    /** Both linear, over all channels. The true peak is never below the sample peak. */
    double sample_peak() const { return static_cast<double>(sample_peak_); }

    double true_peak() const { return static_cast<double>(true_peak_); }

  private:
    /** One channel: the last samples of the call before, those of this one, a piece of zeros. */
    struct Line {
        std::vector<float> samples;
        float peak_before = 0;  // of the pieces that have a part in the next one
    };

    void make_weights(std::size_t factor);
    void look_at(Line& line, std::size_t frames);

    std::vector<std::vector<float>> weights_;  // of each phase between two samples, oldest last
    std::size_t memory_ = 0;  // samples before a piece that have a part in its interpolation
    float gain_ = 1;          // no interpolated sample is larger than this times the samples' peak
    std::vector<Line> lines_;
    float sample_peak_ = 0;
    float true_peak_ = 0;
};

}  // namespace quorvane
