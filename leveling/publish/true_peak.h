#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace quorvane {

/**
 * The height of the wave between samples, after the method of ITU-R BS.1770-4 Annex 2 (four times
 * oversampling), with two changes that find more: 32 weights a phase where the annex has 12, which
 * keeps the band flat up to 0.44 of the sampling rate; and the vertex of the parabola through each
 * three oversampled neighbours, since a grid of four points a sample alone reads a tone at 0.35 of
 * the rate up to 0.34 dB too low. (The parabola: J. O. Smith, "Spectral Audio Signal Processing",
 * quadratic interpolation of peaks.)
 *
 * It works on a stream: the peak at a frame needs the 17 frames after it, so it is reported that
 * many frames later.
 */
class TruePeakFinder {
  public:
    static constexpr std::size_t kPhases = 4;
    static constexpr std::size_t kTaps = 32;
    /** Frames after a frame that its peak depends on. */
    static constexpr std::size_t kLatency = kTaps / 2 + 1;

    /** Peaks up to `unnoticed` (linear) may be told as 0, which spares most of the work. */
    TruePeakFinder(int channels, double unnoticed);

    void set_unnoticed(double peak) { unnoticed_ = peak; }

    /**
     * Takes interleaved frames and writes one peak (linear, the greatest of all channels) for each
     * of them: peaks[i] belongs to the frame kLatency before frame i, to the wave from it to its
     * next one.
     */
    void find(const double* samples, std::size_t frames, double* peaks);

  private:
    static constexpr std::size_t kRun = 128;  // frames worked on at once
    static constexpr std::size_t kKept = kTaps + 1;

    void find_run(const double* samples, std::size_t frames, double* peaks);
    void find_channel(std::size_t channel, std::size_t frames, double* peaks);

    std::size_t channels_;
    double unnoticed_;
    double most_rise_ = 1;  // the wave between samples is at most so many times their maximum
    std::array<std::vector<double>, kPhases> weights_;
    std::vector<std::vector<double>> history_;  // of each channel: kKept frames, then a run
    std::vector<double> oversampled_;
};

/** The true peak of a whole audio file, linear. Throws std::runtime_error with the cause. */
double true_peak_of(const std::string& path);

/** Peaks over time are told block by block; the frames of one at a sample rate. */
constexpr double kPeakBlockSeconds = 0.05;
std::size_t peak_block_frames(int sample_rate_hz);

/**
 * The true peak of each block of an audio file, linear. Peaks up to `unnoticed` may be told as 0,
 * which spares most of the work. Throws std::runtime_error with the cause.
 */
std::vector<double> block_peaks_of(const std::string& path, double unnoticed);

}  // namespace quorvane
