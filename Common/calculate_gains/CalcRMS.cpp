#include "Common/calculate_gains/CalcRMS.h"

#include <cmath>

#include "Common/stream/pump.h"
#include "Common/stream/sound_source.h"

namespace calculate_gains {

GatedMeter::GatedMeter(int channels, std::uint32_t bufferLength, double noiseThreshold)
    : channels_(channels),
      threshold_(noiseThreshold),
      buffer_length_(bufferLength),
      since_loud_(bufferLength) {}  // as if nothing loud had ever been: the gate begins closed

void GatedMeter::process(double* samples, long long frames) {
    double sum = sum_;  // local copies stay in registers
    long long counted = counted_;
    long long since_loud = since_loud_;
    // Without a loud sample the counter only grows; 64 bits hold a recording of any length.
    for (long long i = 0; i < frames * channels_; ++i) {
        const double x = samples[i];
        since_loud = std::fabs(x) > threshold_ ? 0 : since_loud + 1;
        if (since_loud < buffer_length_) {
            sum += x * x;
            ++counted;
        }
    }
    sum_ = sum;
    counted_ = counted;
    since_loud_ = since_loud;
}

double GatedMeter::rms() const {
    return counted_ == 0 ? 0.0 : std::sqrt(sum_ / static_cast<double>(counted_));
}

double CalcRMS_GW(stream::Source& source,
                  long long nSamples,
                  std::uint32_t bufferLength,
                  double noiseThreshold) {
    const int channels = source.info().channels;
    GatedMeter meter(channels, bufferLength, noiseThreshold);
    stream::pump(source, meter, nSamples / channels,
                 {"pBufStart", "Common/calculate_gains/CalcRMS"});
    return meter.rms();
}

double CalcRMS_GW(const SoundHandle& handle,
                  long long nSamples,
                  std::uint32_t bufferLength,
                  double noiseThreshold) {
    // A handle does not say what its file is called; the library knows all the rest.
    SF_INFO info{};
    sf_command(handle.get(), SFC_GET_CURRENT_SF_INFO, &info, sizeof info);
    SoundSource source(handle, "the sound file", info);
    return CalcRMS_GW(source, nSamples, bufferLength, noiseThreshold);
}

}  // namespace calculate_gains
