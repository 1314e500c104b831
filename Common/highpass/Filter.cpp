#include "Common/highpass/Filter.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace highpass {

namespace {

/** Filters and clips one sample in place; returns its square. */
inline double filter_sample(double& sample, biquad& filter) {
    sample = std::max(std::min(BiQuad(sample, &filter), 1.0), -1.0);
    return sample * sample;
}

}  // namespace

Filter::Filter(const std::string& name, const biquad* filters, int channels, stream::Receiver& next)
    : Stage(next), name_(name), channels_(channels) {
    std::copy_n(filters, channels, filters_);
}

/** A section's output waits for its last one; two channels fill each other's waiting time. */
void Filter::process(double* samples, long long frames) {
    biquad left = filters_[0];  // local copies stay in registers
    biquad right = filters_[1];
    double left_sum = sums_[0];
    double right_sum = sums_[1];
    if (channels_ == 1) {
        for (long long i = 0; i < frames; ++i) {
            left_sum += filter_sample(samples[i], left);
        }
    } else {
        for (long long i = 0; i < 2 * frames; i += 2) {
            left_sum += filter_sample(samples[i], left);
            right_sum += filter_sample(samples[i + 1], right);
        }
    }
    filters_[0] = left;
    filters_[1] = right;
    sums_[0] = left_sum;
    sums_[1] = right_sum;
    // Clipping limits infinities to full scale, but NaN passes it and spreads through the filter.
    if (std::isnan(left_sum + right_sum)) {
        throw std::runtime_error(name_ +
                                 ": the high-pass filter overflows; its cutoffs make it "
                                 "unstable, or the samples are too large");
    }
    next().process(samples, frames);
}

double Filter::sum_of_squares() const {
    return std::max(sums_[0], sums_[1]);
}

}  // namespace highpass
