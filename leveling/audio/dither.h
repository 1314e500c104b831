#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorvane {

/** Integers of more bits need no dither. */
constexpr int kMostDitheredBits = 16;

/**
 * The bits of an integer format (libsndfile's number of it) that needs dither: up to 16. 0 for all
 * other formats: the rounding of 24 bits lies below any microphone's noise.
 */
int dithered_bits(int format);

/**
 * Turns floating-point samples into integers of 2 to 16 bits with dither: noise with a triangular
 * density over two steps (TPDF) is added before the rounding, so that the error is a steady noise,
 * half a step rms, whose mean and power do not depend on the signal, and what is fainter than a
 * step stays audible (S. P. Lipshitz, R. A. Wannamaker and J. Vanderkooy, "Quantization and Dither:
 * A Theoretical Survey", JAES 40 (1992)).
 *
 * Where a channel of the source is digital silence for kSilenceSeconds or longer, what would be
 * rounded to zero is zero, so silence stays silence; without that, dither would fill it with noise.
 *
 * Each value of the noise follows from the channel and the number of the frame alone (SplitMix64:
 * G. L. Steele, D. Lea and C. H. Flood, "Fast splittable pseudorandom number generators", OOPSLA
 * 2014). So equal samples give equal integers in blocks of any length and on every machine.
 */
class Dither {
  public:
    static constexpr double kSilenceSeconds = 0.05;

    Dither(int channels, int sample_rate_hz, int bits);

    /** A channel that was not changed: its samples get no noise. */
    void keep_exact(int channel);

    /**
     * The next frames, interleaved, full scale 1.0. `source` holds the same frames of the recording
     * that the samples were made from, for its silence; the samples themselves where there is none.
     * Appends the integers of the frames that are ready, shifted to the upper bits of 16: as many
     * frames as went in, less those of the latency. What does not fit is clipped.
     */
    void process(const double* samples,
                 const double* source,
                 std::size_t frames,
                 std::vector<std::int16_t>& out);

    /** Appends the frames that are still inside. */
    void finish(std::vector<std::int16_t>& out);

  private:
    struct Channel {
        std::uint64_t key = 0;         // of its noise
        bool exact = false;            // without noise
        std::size_t silent_run = 0;    // frames of silence up to the last one
        std::uint64_t silent_end = 0;  // the frames before it are in the last long silence, or done
    };

    bool is_all_sound(const double* source, std::size_t frames) const;
    std::size_t pass_by(const double* source, std::size_t frames);
    void follow_silence(const double* frame);
    void write_frame(const double* frame, std::int16_t* to);
    void write_sound(const double* samples, std::size_t frames, std::int16_t* to);

    std::vector<Channel> channels_;
    double full_scale_;  // in steps
    int shift_;
    std::size_t silence_frames_;
    std::uint64_t taken_ = 0;  // frames that went in
    std::uint64_t given_ = 0;  // frames that came out
    std::vector<double> waiting_;
    std::vector<std::uint64_t> counters_;  // of the noise of a run's samples, for frame 0
};

}  // namespace quorvane
