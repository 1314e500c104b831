#include "Common/calculate_gains/CalcRMS.h"

#include <algorithm>
#include <cmath>

#include "Common/reporting/progress.h"
#include "Common/ss_util.h"

namespace calculate_gains {

namespace {
constexpr long long kBlockSamples = 262144;
}

CalcRMS_GW::CalcRMS_GW(const SoundHandle& handle,
                       const std::string& file,
                       const SF_INFO& info,
                       std::uint32_t bufferLength,
                       double noiseThreshold)
    : handle_(handle),
      guard_(file, info),
      buffer_length_(bufferLength),
      threshold_(noiseThreshold) {
    allocate(block_, kBlockSamples, "pBufStart", "Common/calculate_gains/CalcRMS");
}

double CalcRMS_GW::measure(long long nSamples) {
    double sum = 0.0;
    long long counted = 0;
    long long since_loud = buffer_length_;  // samples since the last one above the threshold
    while (nSamples > 0) {
        check_cancelled();
        const long long read =
            sf_read_double(handle_.get(), block_.get(), std::min(nSamples, kBlockSamples));
        if (read <= 0) {
            break;
        }
        guard_.check(block_.get(), read);
        for (long long i = 0; i < read; ++i) {
            const double x = block_[i];
            since_loud = std::fabs(x) > threshold_ ? 0 : since_loud + 1;
            if (since_loud < buffer_length_) {
                sum += x * x;
                ++counted;
            }
        }
        nSamples -= read;
    }
    return counted == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(counted));
}

}  // namespace calculate_gains
