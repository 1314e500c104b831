#pragma once

#include <memory>
#include <string>

#include "Common/outcome.h"

namespace level_engine {

/**
 * Measures the finished audio while it is written, with the samples as a reader of the file would
 * decode them, so that the check of the output does not have to read it. It measures only files of
 * plain samples. It starts to write a file that will be synced to the disk as it goes.
 */
class OutputMeter {
  public:
    /**
     * Measures the next file that is written at path with this number of channels. descriptor: of
     * the file if it will be synced, else -1.
     */
    void attach_to(const std::string& path, int channels, int descriptor);

    /** Copies the measurements to found if the whole file was measured. */
    void tell(LevelFindings& found) const;

  private:
    class WriteTap;

    struct Measured {
        long long frames = 0;
        double peak = 0.0;     // the largest absolute sample
        double squares = 0.0;  // the sum over all samples; NaN if one of them is NaN
        bool complete = false;
    };

    std::shared_ptr<Measured> measured_;
    int channels_ = 0;
};

}  // namespace level_engine

using level_engine::OutputMeter;
