#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

/*
 * Loudness after ITU-R BS.1770-4 and EBU R128 from the energy of weighted samples in stretches of
 * 100 ms. libebur128 is right as well, and the tests hold this against it, but it takes most of the
 * time of leveling a file: it filters one channel after the other with a recursion of the fourth
 * order, and sums each window of a curve anew. Here two channels stand side by side, two recursions
 * of the second order overlap, and no sample is squared twice.
 */

namespace cli {

/**
 * The K-weighting of BS.1770-4 (annex 1, figures 2 to 5): a shelf for the head, then a high-pass,
 * each a recursion of the second order. Filters go on from call to call.
 */
class KWeighting {
  public:
    KWeighting(int channels, int sample_rate_hz);

    /**
     * The next frames, interleaved: the squares of their weighted samples, summed over frames and,
     * each with its weight, over channels.
     */
    double energy(const float* samples, std::size_t frames);
    double energy(const double* samples, std::size_t frames);

    /** y0 = b0 x0 + b1 x1 + b2 x2 - a1 y1 - a2 y2, where 1 and 2 are frames ago. */
    struct Biquad {
        double b0, b1, b2, a1, a2;
    };

    static Biquad shelf(int sample_rate_hz);
    static Biquad high_pass(int sample_rate_hz);

  private:
    using Pair = std::array<double, 2>;  // one value for each of two neighbouring channels

    /** What the filters remember of two channels: their inputs and outputs, one and two frames ago.
     */
    struct Memory {
        Pair x1{}, x2{}, y1{}, y2{}, z1{}, z2{};
        Pair weights{};
    };

    template <std::size_t kStride, class Sample>
    double filter(Memory& memory, const Sample* samples, std::size_t frames) const;
    template <class Sample>
    double filter_all(const Sample* samples, std::size_t frames);

    std::size_t channels_;
    Biquad shelf_;
    Biquad high_pass_;
    std::vector<Memory> pairs_;
};

/**
 * Integrated loudness and loudness range of a recording, and its loudness in windows that are known
 * before. Channels have the weights that BS.1770-4 gives to left, right, centre, LFE (none) and the
 * two surrounds; further ones have none.
 */
class LoudnessMeter {
  public:
    /** cuts: the frames at which the windows begin or end, ascending, each once. */
    LoudnessMeter(int channels, int sample_rate_hz, std::vector<std::int64_t> cuts = {});

    /** The next frames, interleaved, full scale 1.0. */
    template <class Sample>
    void add(const Sample* samples, std::size_t frames);

    /**
     * LUFS: the mean of the blocks of 400 ms, one each 100 ms, that are neither below -70 LUFS nor
     * more than 10 LU below the mean of those which are not. Minus infinity where there is none.
     */
    double integrated_lufs() const;

    /**
     * LU, after EBU Tech 3342: from the 10th to the 95th percentile of the windows of 3 s, one each
     * second, that are neither below -70 LUFS nor more than 20 LU below their mean.
     */
    double range_lu() const;

    /** LUFS: the greatest of all blocks of 400 ms. Minus infinity for silence. */
    double greatest_momentary_lufs() const;

    /** Frames of a block of 400 ms, which is a whole number of stretches of 100 ms. */
    static std::int64_t block_frames(int sample_rate_hz);

    /**
     * LUFS of the frames from begin to end, which are cuts that have been reached, without gate;
     * what lies before frame 0 is silence. Minus infinity for silence.
     */
    double window_lufs(std::int64_t begin, std::int64_t end) const;

  private:
    void finish_tenth();

    std::size_t channels_;
    KWeighting weighting_;
    std::int64_t tenth_frames_;
    std::int64_t done_ = 0;
    std::vector<std::int64_t> cuts_;
    std::vector<double> between_cuts_;   // energies; the first one lies before the first cut
    double tenth_ = 0;                   // energy of the 100 ms under way
    std::vector<double> tenths_;         // of the last 3 s, in a ring
    std::int64_t finished_ = 0;          // 100 ms stretches
    double greatest_block_ = 0;          // power
    std::vector<double> blocks_;         // power of each 400 ms above the absolute gate
    std::vector<double> short_windows_;  // power of each 3 s above it
};

}  // namespace cli
