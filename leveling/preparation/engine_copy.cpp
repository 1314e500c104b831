#include "leveling/preparation/engine_copy.h"

#include <stdexcept>

#include "Common/reporting/write_error.h"
#include "Common/stream/pump.h"
#include "Common/stream/sound_writer.h"
#include "leveling/facts/no_room.h"
#include "leveling/preparation/sound_files.h"

namespace quorvane {
namespace {

constexpr double kRiffLimit = 4.2e9;  // bytes; 32-bit sizes end at 2^32, the header needs some

/** A gain and a high-pass on the way to the copy. */
class Raise : public stream::Stage {
  public:
    Raise(double gain,
          const std::vector<Section>& high_pass,
          int channels,
          const std::function<void(long long)>& count,
          stream::Receiver& next)
        : Stage(next),
          gain_(gain),
          channels_(channels),
          filter_(high_pass, channels),
          count_(count) {}

    void process(double* samples, long long frames) override {
        for (long long i = 0; i < frames * channels_; ++i) {
            samples[i] *= gain_;
        }
        filter_.process(samples, frames);
        next().process(samples, frames);
        count_(frames);
    }

    /** One of several stretches is over: the file goes on. */
    void finish() override {}

  private:
    double gain_;
    int channels_;
    FilterChain filter_;
    const std::function<void(long long)>& count_;
};

}  // namespace

void write_engine_copy(const std::string& recording,
                       const Timeline& timeline,
                       double gain,
                       const std::vector<Section>& high_pass,
                       const std::string& to,
                       const std::function<void(double)>& progress) {
    InputFile in(recording);
    const int channels = in.info().channels;
    const auto total = static_cast<double>(timeline.kept_frames());
    const bool large = total * channels * sizeof(float) > kRiffLimit;
    SF_INFO info = in.info();
    info.format = (large ? SF_FORMAT_RF64 : SF_FORMAT_WAV) | SF_FORMAT_FLOAT;
    const SoundHandle handle = open_sound_for_writing(to, info);
    if (!handle) {
        throw std::runtime_error(sound_open_reason());
    }
    reporting::forget_write_error();
    SoundWriter writer(handle, to, channels, stream::kBlockSamples,
                       [](const WriteFailure& failure) {
                           fail_write(reporting::first_write_error(), failure.reason);
                       });
    double done = 0;
    const std::function<void(long long)> count = [&](long long frames) {
        done += static_cast<double>(frames);
        progress(done / total);
    };
    Raise raise(gain, high_pass, channels, count, writer);
    for (const Stretch& stretch : timeline.kept()) {
        if (in.source().position() != stretch.begin && !in.source().seek(stretch.begin)) {
            throw std::runtime_error("cannot be read from its middle");
        }
        stream::pump(in.source(), raise, stretch.length());
    }
    writer.finish();
}

}  // namespace quorvane
