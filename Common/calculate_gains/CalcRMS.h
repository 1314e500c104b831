#pragma once

#include <boost/scoped_array.hpp>
#include <cstdint>

#include "Common/audio/finite.h"
#include "Common/audio/sound_handle.h"

namespace calculate_gains {

/**
 * Gated RMS of consecutive stretches of a file: a sample counts when one of the last bufferLength
 * samples, itself included, is above the threshold in absolute value. Samples are interleaved and
 * taken as one sequence.
 *
 * Whether the loudest of the last bufferLength samples is above the threshold is the same question
 * as whether the last sample above it lies fewer than bufferLength samples back: one counter takes
 * the place of a buffer of samples and its running maximum.
 */
class CalcRMS_GW {
  public:
    /** file names the input in errors; it must not change while this lives. */
    CalcRMS_GW(const SoundHandle& handle,
               const std::string& file,
               const SF_INFO& info,
               std::uint32_t bufferLength,
               double noiseThreshold);

    /** Over the next nSamples, or as many as there are: linear, 0 when no sample counted. */
    double measure(long long nSamples);

  private:
    SoundHandle handle_;
    FiniteGuard guard_;
    std::uint32_t buffer_length_;
    double threshold_;
    boost::scoped_array<double> block_;
};

}  // namespace calculate_gains
