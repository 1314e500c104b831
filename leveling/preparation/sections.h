#pragma once

#include <array>
#include <cstddef>
#include <vector>

namespace quorvane {

/** Coefficients of a second-order section, divided by a0. */
struct Section {
    double b0, b1, b2, a1, a2;
};

/**
 * Second-order sections of the Audio EQ Cookbook (R. Bristow-Johnson), with the corner in Hz and
 * the quality factor given. The same bits on every build.
 */
Section high_pass(double corner_hz, double quality, int sample_rate_hz);
Section low_pass(double corner_hz, double quality, int sample_rate_hz);

/** A Butterworth high-pass of the fourth order: 24 dB an octave. */
std::vector<Section> steep_high_pass(double corner_hz, int sample_rate_hz);

/** Two samples that are filtered side by side. */
// NOLINTNEXTLINE(modernize-use-using): see docs/performance.md
typedef double Pair __attribute__((vector_size(16)));

/** One section over both channels of a recording; a mono one has zeros in the second lane. */
class PairFilter {
  public:
    explicit PairFilter(const Section& section);

    /** Filters a frame. (Transposed direct form II.) */
    Pair next(Pair x) {
        const Pair y = b0_ * x + s1_;
        s1_ = b1_ * x - a1_ * y + s2_;
        s2_ = b2_ * x - a2_ * y;
        return y;
    }

    /**
     * Ends the tail of a sound that is over, long below what any format holds: numbers near the
     * least that a processor knows cost it a hundred times the time.
     */
    void drop_tail();

  private:
    Pair b0_, b1_, b2_, a1_, a2_;
    Pair s1_ = {0, 0};
    Pair s2_ = {0, 0};
};

/** A chain of sections over interleaved samples of one or two channels. */
class FilterChain {
  public:
    FilterChain(const std::vector<Section>& sections, int channels);

    /** Filters in place. */
    void process(double* samples, long long frames);

    /** The same into another place, times a gain that grows by so much a frame. */
    void process(const double* from, double* to, long long frames, double gain, double step);

    /** The section of a chain of one, for a loop that has more to do with each frame. */
    PairFilter* only_section() { return filters_.size() == 1 ? &filters_.front() : nullptr; }

    /** Forgets what came before. */
    void reset();

  private:
    std::vector<Section> sections_;
    std::vector<PairFilter> filters_;
    int channels_;
};

}  // namespace quorvane
