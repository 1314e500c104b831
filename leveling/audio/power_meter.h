#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorvane {

/**
 * Mean square of a whole recording and of its quietest half second, and the quiet at its ends, from
 * blocks of 100 ms.
 */
class PowerMeter {
  public:
    PowerMeter(int channels, int sample_rate_hz);

    /** The next samples, interleaved, full scale 1.0. */
    void add(const float* samples, std::size_t count);

    /** What a meter has measured that began where this one ends, at the end of a block. */
    void append(const PowerMeter& next);

    /** Of all samples of all channels; no number, or infinite, where one of them is. */
    double mean_square() const;

    /** The same as a level in dB. Minus infinity for silence. */
    double rms_db() const;

    /** The level of the quietest half second, or of all where there is none. */
    double quietest_db() const;

    /** The blocks before the first and after the last one with more than room tone in it. */
    std::size_t quiet_blocks_at_head() const;
    std::size_t quiet_blocks_at_tail() const;

    /** Frames of a block. */
    static std::int64_t block_frames(int sample_rate_hz);

  private:
    bool sounds(double block) const;

    std::size_t block_samples_;
    std::size_t in_block_ = 0;
    double block_ = 0;  // sum of the squares of the block under way
    std::vector<double> blocks_;
};

}  // namespace quorvane
