#pragma once

#include <cstdint>
#include <vector>

namespace quorvane::media {

/**
 * Which sample of a continuous sound is heard when. A container gives every decoded block its own
 * time; mostly it is where the block before it ended, but sound may begin late, pause without
 * samples (a gap), or stutter with the clock of its recorder. The timeline keeps the samples whose
 * time does not follow from the ones before.
 */
class Timeline {
  public:
    /** From `sample` on, samples follow one another at the sample rate, beginning at `time_ns`. */
    struct Mark {
        std::int64_t sample;
        std::int64_t time_ns;
    };

    explicit Timeline(int sample_rate_hz = 1) : rate_(sample_rate_hz) {}

    /** A block that begins with `sample` (not below the ones before) is heard at `time_ns`. */
    void add(std::int64_t sample, std::int64_t time_ns);

    /** When the sample is heard; samples before the first mark are counted back from it. */
    std::int64_t time_of(std::int64_t sample) const;

    /** In order of their samples. */
    const std::vector<Mark>& marks() const { return marks_; }

    int sample_rate_hz() const { return rate_; }

    /** The duration of so many samples. */
    std::int64_t nanoseconds(std::int64_t samples) const;

    std::int64_t samples(std::int64_t nanoseconds) const;

  private:
    int rate_;
    std::vector<Mark> marks_;
};

}  // namespace quorvane::media
