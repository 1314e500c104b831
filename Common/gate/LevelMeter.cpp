#include "Common/gate/LevelMeter.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

#include "Common/gate/gate.h"

namespace gate {

CLevelMeter::CLevelMeter(int size)
    : size_(size),
      ring_(new double[static_cast<std::size_t>(size)]()),
      write_(ring_.get()),
      last_(ring_.get() + size - 1) {}

double CLevelMeter::initialize(const double* samples) {
    std::copy_n(samples, size_, ring_.get());
    sum_ = std::inner_product(ring_.get(), ring_.get() + size_, ring_.get(), 0.0);
    level_ = sum_;
    return sum_;
}

double CLevelMeter::initialize(const boost::shared_ptr<SNDFILE>& handle,
                               const std::string& file,
                               int channels) {
    // The count is of samples, all channels together: the meter of a stereo file's handle holds
    // both channels mixed. The gate itself fills its meters channel by channel.
    boost::shared_array<double> samples(new double[static_cast<std::size_t>(size_)]);
    const long long read = sf_read_double(handle.get(), samples.get(), size_);
    if (sf_seek(handle.get(), -size_ / channels, SEEK_CUR) == -1) {
        throw ss_sf_seek_error(file);
    }
    return read < size_ ? 1.0 : initialize(samples.get());
}

}  // namespace gate
