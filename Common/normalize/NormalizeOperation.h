#pragma once

#include <sndfile.h>

#include <boost/scoped_array.hpp>

#include "Common/audio/sound_handle.h"
#include "Common/bins/Bin.h"
#include "Common/bins/BinGrid.h"
#include "Common/normalize/CommandLine.h"

namespace normalize {

/** One run of the step over one file. */
class NormalizeOperation {
  public:
    /** Turns a positive noise floor or peak output negative, with a warning. */
    explicit NormalizeOperation(const NormalizeArgs& args);

    /** Measures, fits and applies. Throws the step's errors and std::runtime_error. */
    void Execute();

    /** Measures every bin; returns the level of those above the noise floor, linear, or 0.0. */
    double InitializeBinArray();

    void ApplyGains();

  private:
    NormalizeArgs args_;
    double noise_floor_;   // linear
    double peak_output_;   // linear
    double target_level_;  // linear
    SF_INFO info_{};
    SoundHandle input_;
    BinGrid grid_{};
    boost::scoped_array<CBin> pBin;
    double overall_level_ = 0.0;
    boost::scoped_array<double> pWallGains;
    boost::scoped_array<double> pBinData;
};

void Normalize(const NormalizeArgs& args);

}  // namespace normalize
