#pragma once

#include <complex>
#include <cstddef>
#include <sndfile.hh>
#include <string>
#include <vector>

#include "leveling/audio/fft.h"

/*
 * Spill shows in the cross-correlation of two tracks with the phase transform (C. H. Knapp and G.
 * C. Carter, "The generalized correlation method for estimation of time delay", IEEE Trans. ASSP 24
 * (1976)): every frequency counts alike, so that a sound that is 30 dB lower on the one track,
 * among louder ones, still gives a sharp peak at its delay.
 */

namespace quorvane {

/** Reads pieces of a recording as a mono sound of speech's frequencies at a low rate. */
class PieceReader {
  public:
    /** The rate is the whole fraction of the recording's that is the nearest above rate_hz. */
    PieceReader(const std::string& path, int rate_hz);

    double rate_hz() const { return rate_hz_; }

    double seconds() const;

    /** So many samples from a moment on; zeros where the recording is not. */
    std::vector<double> read(double from_s, std::size_t count);

  private:
    SndfileHandle file_;
    std::size_t channels_;
    int step_;
    double rate_hz_;
};

/** The half of a real signal's spectrum that the other half follows from, of size 1 everywhere. */
using Phases = std::vector<std::complex<float>>;

/** Samples: as many as the transform has, or fewer, behind which are zeros. */
Phases phases_of(const std::vector<double>& samples, const Fft& fft);

/**
 * The correlation at each lag, over the rms of all of them: value i is high where the one signal is
 * i samples later than the other; lags below 0 stand at the end.
 */
std::vector<float> correlation(const Phases& one, const Phases& other, const Fft& fft);

}  // namespace quorvane
