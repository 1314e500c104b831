#pragma once

#include <array>
#include <cstddef>
#include <vector>

namespace quorvane {

/**
 * The K-weighting of BS.1770-4 (annex 1, figures 2 to 5): a shelf for the head, then a high-pass,
 * each a recursion of the second order. Filters go on from call to call.
 */
class KWeighting {
  public:
    /** Channels that are filtered side by side, and runs at once. */
    static constexpr std::size_t kLanes = 2;

    /** weights: of the channels; none: those of the usual order of up to six of them. */
    KWeighting(int channels, int sample_rate_hz, const std::vector<double>& weights = {});

    /**
     * The next frames, interleaved: the squares of their weighted samples, summed over frames and,
     * each with its weight, over channels.
     */
    double energy(const float* samples, std::size_t frames);
    double energy(const double* samples, std::size_t frames);

    /** Two runs of frames at once, each with filters of its own; of one or two channels. */
    struct Energies {
        double first, second;
    };

    static Energies energies(KWeighting& first,
                             const float* samples_of_first,
                             KWeighting& second,
                             const float* samples_of_second,
                             std::size_t frames);

    /** The same filters as they are before the first sample. */
    KWeighting fresh() const;

    /** y0 = b0 x0 + b1 x1 + b2 x2 - a1 y1 - a2 y2, where 1 and 2 are frames ago. */
    struct Biquad {
        double b0, b1, b2, a1, a2;
    };

    static Biquad shelf(int sample_rate_hz);
    static Biquad high_pass(int sample_rate_hz);

  private:
    using Pair = std::array<double, 2>;  // one value for each of two neighbouring channels

    /**
     * What the filters remember of two channels: the shelf's input one and two frames ago, what it
     * gave to the high-pass, and that one's output.
     */
    struct Memory {
        std::array<Pair, 6> values{};
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

}  // namespace quorvane
