#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorvane {

/**
 * Finds the flat tops of one polarity of one channel, which are left where a converter or a gain
 * ran out of range: runs of samples that all lie at the recording's extreme. An unclipped voice
 * reaches its extreme in one or two periods only. (S. V. Aleinik and Y. N. Matveev, "Detection of
 * clipped fragments in speech signals", World Academy of Science, Engineering and Technology 8
 * (2014): clipping shows as samples that crowd at the ends of the histogram.) What was lowered
 * after clipping is found at its lower extreme.
 */
class FlatTops {
  public:
    /** Samples of a tenth of a second that are in flat tops. */
    struct Place {
        std::uint32_t tenth;
        std::uint32_t samples;
    };

    explicit FlatTops(int sample_rate_hz);

    /**
     * The next samples, times `polarity` 1 or -1, with their highest value then; they lie in that
     * tenth of a second.
     */
    void add(const float* samples,
             std::size_t count,
             float polarity,
             float highest,
             std::uint32_t tenth);

    /** The findings of a later part, whose first tenth is that many tenths in. */
    void append(const FlatTops& later, std::uint32_t tenths);

    double samples() const { return samples_; }

    double runs() const { return runs_; }

    float level() const { return level_; }

    const std::vector<Place>& places() const { return places_; }

  private:
    void clear();
    void count_run(std::uint32_t tenth);

    std::size_t least_run_;
    float level_ = 0;
    std::size_t run_ = 0;
    double samples_ = 0;
    double runs_ = 0;
    std::vector<Place> places_;
};

}  // namespace quorvane
