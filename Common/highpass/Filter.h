#pragma once

#include <string>

#include "Common/highpass/biquad.h"
#include "Common/stream/stream.h"

namespace highpass {

/**
 * Filters one or two channels, each by a section of its own whose state runs through the whole
 * recording, clips the result to full scale and sums up its squares.
 */
class Filter : public stream::Stage {
  public:
    /** name: of the recording, for errors. filters: one per channel, in its state of silence. */
    Filter(const std::string& name, const biquad* filters, int channels, stream::Receiver& next);

    /** Throws std::runtime_error when a sum is NaN, which an unstable filter leads to. */
    void process(double* samples, long long frames) override;

    /** Of the louder channel. */
    double sum_of_squares() const;

  private:
    std::string name_;
    int channels_;
    biquad filters_[2] = {};
    double sums_[2] = {0.0, 0.0};
};

}  // namespace highpass
