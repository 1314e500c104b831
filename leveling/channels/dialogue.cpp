#include "leveling/channels/dialogue.h"

#include <vector>

#include "Common/stream/pump.h"
#include "leveling/channels/layout.h"
#include "leveling/channels/voice_curve.h"
#include "leveling/preparation/bin_levels.h"
#include "leveling/preparation/sound_files.h"

namespace quorvane {
namespace {

constexpr double kOffset_db = -0.691;  // BS.1770-4: from power to loudness

/** Measures one channel of several. */
class OneChannel : public stream::Receiver {
  public:
    OneChannel(int channel, int channels, int sample_rate_hz)
        : channel_(static_cast<std::size_t>(channel)),
          channels_(static_cast<std::size_t>(channels)),
          analyser_(1, sample_rate_hz, {}) {}

    void process(double* samples, long long frames) override {
        one_.resize(static_cast<std::size_t>(frames));
        for (std::size_t i = 0; i < one_.size(); ++i) {
            one_[i] = samples[i * channels_ + channel_];
        }
        analyser_.process(one_.data(), frames);
    }

    void finish() override { analyser_.finish(); }

    const BinLevels& levels() { return analyser_.levels(); }

  private:
    std::size_t channel_;
    std::size_t channels_;
    LevelAnalyser analyser_;
    std::vector<double> one_;
};

}  // namespace

std::optional<double> dialogue_loudness(const std::string& path) {
    const int centre = read_layout(path).centre();
    if (centre < 0) {
        return std::nullopt;
    }
    InputFile file(path);
    OneChannel meter(centre, file.info().channels, file.info().samplerate);
    stream::pump(file.source(), meter, stream::kToTheEnd);
    const BinLevels& levels = meter.levels();
    const VoiceCurve voice = voice_curve(levels, {});
    if (!voice.has_speech()) {
        return std::nullopt;
    }
    return kOffset_db + speech_level(levels.weighted_db, voice.phrases.words, {0, levels.count()});
}

}  // namespace quorvane
