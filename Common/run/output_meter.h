#pragma once

#include <memory>
#include <string>

#include "Common/outcome.h"

namespace level_engine {

/**
 * Measures the finished audio while it is written, as its file gives it back, so that whoever
 * judges it need not read it for that. Files that do not hold plain samples are not measured. A
 * file that is going to be synced is sent to the disk on the way.
 */
class OutputMeter {
  public:
    /**
     * Rides along with the next writing of a file that has so many channels. descriptor: of the
     * file if it is going to be synced, else -1.
     */
    void attach_to(const std::string& path, int channels, int descriptor);

    /** Brings in what was measured, if all of the file was. */
    void tell(LevelFindings& found) const;

  private:
    class WriteTap;

    struct Measured {
        long long frames = 0;
        double peak = 0.0;     // the largest absolute sample
        double squares = 0.0;  // the sum over all samples; no number where one of them is none
        bool complete = false;
    };

    std::shared_ptr<Measured> measured_;
    int channels_ = 0;
};

}  // namespace level_engine

using level_engine::OutputMeter;
