#pragma once

#include <sndfile.hh>
#include <vector>

#include "leveling/audio/loudness_meter.h"
#include "leveling/facts/destinations.h"

namespace quorvane {

/** In ten-thousandths of a dB, so that the last bit of the library's logarithm decides nothing. */
double rounded(double db);

/** The level that a delivery target is defined by, and nothing else: a trial has to be cheap. */
class LevelMeter {
  public:
    LevelMeter(LevelKind kind, const SndfileHandle& file);

    /** Interleaved, whole frames. */
    void add(const std::vector<double>& samples);

    /** Rounded. Minus infinity for silence. */
    double level_db() const;

  private:
    LevelKind kind_;
    std::size_t channels_;
    LoudnessMeter meter_;
    // For an RMS target.
    double squares_ = 0;
    double count_ = 0;
};

}  // namespace quorvane
