#include "Common/run/output_meter.h"

#include <cmath>
#include <new>
#include <utility>

#include "Common/audio/power_and_peak.h"
#include "Common/files/descriptor.h"
#include "Common/stream/stream.h"
#include "Common/stream/write_taps.h"

namespace level_engine {

class OutputMeter::WriteTap : public stream::Receiver {
  public:
    WriteTap(std::shared_ptr<Measured> measured, int channels, int descriptor)
        : measured_(std::move(measured)), channels_(channels), descriptor_(descriptor) {}

    void process(double* samples, long long frames) override {
        add_power_and_peak(samples, frames * channels_, measured_->squares, measured_->peak);
        measured_->frames += frames;
        unsynced_ += frames * channels_;
        if (descriptor_ != -1 && unsynced_ >= kSamplesToSync) {
            unsynced_ = 0;
            start_sync(descriptor_);
        }
    }

    void finish() override { measured_->complete = true; }

  private:
    static constexpr long long kSamplesToSync = 1LL << 22;  // 8 MB of 16 bits

    std::shared_ptr<Measured> measured_;
    int channels_;
    int descriptor_;
    long long unsynced_ = 0;  // samples
};

void OutputMeter::attach_to(const std::string& path, int channels, int descriptor) {
    channels_ = channels;
    try {
        measured_ = std::make_shared<Measured>();
        stream::WriteTaps::of_this_thread().attach(
            path, std::make_unique<WriteTap>(measured_, channels, descriptor));
    } catch (const std::bad_alloc&) {
        measured_.reset();  // not measured, then
    }
}

void OutputMeter::tell(LevelFindings& found) const {
    if (measured_ && measured_->complete && measured_->frames > 0) {
        found.output_frames = measured_->frames;
        found.output_peak = measured_->peak;
        found.output_rms =
            std::sqrt(measured_->squares / static_cast<double>(measured_->frames * channels_));
    }
}

}  // namespace level_engine
