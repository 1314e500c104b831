#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "leveling/publish/true_peak.h"

namespace quorvane {

/** How much a limiter had to take away, frame by frame. */
class Reductions {
  public:
    /**
     * One more frame with that gain. `lowered` is the factor by which the ceiling was lower there
     * than that of the rest: its part of the reduction counts for most_db() alone. Both linear, 0
     * to 1.
     */
    void add(double gain, double lowered = 1);

    /** So many frames more that were left as they are. */
    void add_untouched(std::size_t frames) { frames_ += frames; }

    /** The greatest reduction, dB. */
    double most_db() const;

    /** The share of all frames, 0 to 1, that were reduced by more than so many dB. */
    double share_above(double reduction_db) const;

    /** The reduction, dB, that only the given share of all frames exceeds. */
    double exceeded_by(double share) const;

  private:
    static constexpr std::size_t kBins = 4096;  // of linear gains: 0.004 dB wide at -6 dB

    std::array<std::uint64_t, kBins> counts_{};
    std::uint64_t frames_ = 0;
    double least_gain_ = 1;
};

/**
 * The least of the last values, for a window of fixed length, in constant time a value on average.
 * (D. Lemire, "Streaming maximum-minimum filter using no more than three comparisons per element",
 * 2006: candidates in a queue, rising.)
 */
class SlidingMinimum {
  public:
    explicit SlidingMinimum(std::size_t window) : window_(window), ring_(window + 1) {}

    double next(double value);

  private:
    struct Candidate {
        double value;
        std::uint64_t leaves;  // the count of values at which it is out of the window
    };

    std::size_t window_;
    std::vector<Candidate> ring_;
    std::size_t first_ = 0;
    std::size_t held_ = 0;
    std::uint64_t count_ = 0;
};

/**
 * The mean of the last values between 0 and 1. It adds them as integers, so that a sum that runs
 * for hours does not drift, and rounds down.
 */
class MovingMean {
  public:
    explicit MovingMean(std::size_t window);
    double next(double value);

  private:
    std::vector<std::int64_t> ring_;
    std::size_t at_ = 0;
    std::int64_t sum_ = 0;
};

/** Whether the frames that come next may hold a peak above the ceiling. */
enum class Peaks { kPossible, kNone };

/**
 * A gain and a true-peak limiter with look-ahead over a stream of interleaved frames.
 *
 * The gain that each frame needs is ceiling / peak, where the peak is that of the wave around it in
 * the loudest channel (TruePeakFinder); all channels get the same gain. A sliding minimum holds it
 * over the look-ahead and over kHoldSeconds, longer than a period of a low voice, so that the gain
 * does not flutter within a vowel; from there it recovers exponentially (the release of D.
 * Giannoulis, M. Massberg and J. D. Reiss, "Digital Dynamic Range Compressor Design", JAES 60
 * (2012)); and two moving means over the look-ahead make the attack smooth.
 *
 * How fast it recovers depends on how long the reduction lasted, by two time constants in series
 * (G. W. McNally, "Dynamic Range Control of Digital Audio Signals", JAES 32 (1984); D. Giannoulis,
 * M. Massberg and J. D. Reiss, "Parameter Automation in a Dynamic Range Compressor", JAES 61
 * (2013)). A second, slow gain follows the reduction with kSustainSeconds and recovers with
 * kReleaseSeconds; the gain itself goes back to the slow one with kQuickReleaseSeconds. A click
 * hardly moves the slow gain, so the ducking ends with it; after a loud word the slow gain has
 * arrived at the reduction, and the recovery is as slow as it has to be not to be heard as pumping.
 *
 * As each mean is over values that were held at or below what the frame needs, the ceiling holds
 * exactly (P. Hamalainen, "Smoothing of the control signal without clipped output in digital peak
 * limiters", DAFx 2002).
 *
 * What comes out is aligned with what went in to the frame: the latency is taken off at the start,
 * and finish() gives the frames that are still inside. Memory is constant.
 */
class TruePeakLimiter {
  public:
    static constexpr double kAttackSeconds = 0.005;
    static constexpr double kHoldSeconds = 0.012;
    // Time constants: to 1 - 1/e of the way.
    static constexpr double kSustainSeconds = 0.150;
    static constexpr double kQuickReleaseSeconds = 0.015;
    static constexpr double kReleaseSeconds = 0.150;

    /**
     * The gain and the ceiling are linear. `lowered`: for each block of peak_block_frames() a
     * factor up to 1 by which its ceiling is lower; 1 behind the last.
     */
    TruePeakLimiter(int channels,
                    int sample_rate_hz,
                    double gain,
                    double ceiling,
                    std::vector<double> lowered = {});

    /** Where none is expected none is looked for, which spares most of the work. */
    void expect(Peaks peaks);

    /** Appends what is ready to `out`: as many frames as went in, less those of the latency. */
    void process(const double* samples, std::size_t frames, std::vector<double>& out);
    void finish(std::vector<double>& out);

    const Reductions& reductions() const { return reductions_; }

  private:
    /** The factor of the block that a frame is in, 1 where there is none. */
    double lowered_at(std::uint64_t frame) const;
    std::size_t end_of_rest(std::size_t frame, std::size_t end);
    double next_gain(double peak, double ceiling);

    std::size_t channels_;
    double gain_;
    double ceiling_;
    std::vector<double> lowered_;
    std::size_t block_frames_;
    std::uint64_t found_ = 0;  // frames that the finder has reported, and those of its latency
    // The shares of the way that a frame goes.
    double sustain_;
    double quick_release_;
    double release_;
    std::size_t attack_frames_;
    std::size_t latency_frames_;
    double unnoticed_;  // the lowest ceiling
    TruePeakFinder finder_;
    SlidingMinimum held_;
    MovingMean first_mean_;
    MovingMean second_mean_;
    double sustained_ = 1;
    double released_ = 1;
    double needed_before_ = 1;
    std::size_t frames_to_rest_;  // after so many frames without need every gain inside is 1
    std::size_t frames_at_rest_ = 0;
    std::size_t frames_to_drop_;   // of the latency, at the start
    std::vector<double> delayed_;  // interleaved, latency_frames_ and a block, times the gain
    std::vector<double> peaks_;
    Reductions reductions_;
};

}  // namespace quorvane
