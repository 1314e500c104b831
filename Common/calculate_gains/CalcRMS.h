#pragma once

#include <cstdint>

#include "Common/audio/sound_handle.h"
#include "Common/stream/stream.h"

namespace calculate_gains {

/**
 * Gated RMS: a sample counts when one of the last bufferLength samples, itself included, is above
 * the threshold in absolute value. Samples are interleaved and taken as one sequence.
 *
 * Whether the loudest of the last bufferLength samples is above the threshold is the same question
 * as whether the last sample above it lies fewer than bufferLength samples back: one counter takes
 * the place of a buffer of samples and its running maximum.
 */
class GatedMeter : public stream::Receiver {
  public:
    /** noiseThreshold: linear. */
    GatedMeter(int channels, std::uint32_t bufferLength, double noiseThreshold);

    void process(double* samples, long long frames) override;

    /** Linear, 0 when no sample counted. */
    double rms() const;

  private:
    int channels_;
    double threshold_;
    std::uint32_t buffer_length_;
    long long since_loud_;  // samples since the last one above the threshold
    double sum_ = 0.0;
    long long counted_ = 0;
};

/**
 * The gated RMS of a source's next nSamples interleaved samples, or as many as there are. Throws
 * what stream::pump throws.
 */
double CalcRMS_GW(stream::Source& source,
                  long long nSamples,
                  std::uint32_t bufferLength,
                  double noiseThreshold);

/** The same of an open sound file, from its position on. */
double CalcRMS_GW(const SoundHandle& handle,
                  long long nSamples,
                  std::uint32_t bufferLength,
                  double noiseThreshold);

}  // namespace calculate_gains
