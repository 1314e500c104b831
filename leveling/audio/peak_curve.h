#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * The outline of a waveform: the largest sample of each step of a recording. Steps are whole
 * frames, so that two halves of a recording give the same outline as the whole.
 */
class PeakCurve {
  public:
    /** frames: of the recording, which sets the step. begin: the frame that is added first. */
    PeakCurve(int channels, int sample_rate_hz, std::int64_t frames, std::int64_t begin);

    /** The next frames, interleaved, full scale 1.0. */
    void add(const float* samples, std::size_t frames);

    /** Takes over what a curve has that began where this one ends. */
    void append(const PeakCurve& next);

    /** dBFS in tenths, minus infinity for digital silence; at most about a thousand values. */
    Curve dbfs() const;

  private:
    std::size_t channels_;
    int sample_rate_hz_;
    std::int64_t step_frames_;
    std::int64_t first_;  // the step with the frame that is added first
    std::int64_t end_;
    std::vector<float> peaks_;
};

}  // namespace quorvane
