#include "leveling/publish/level_meter.h"

#include <algorithm>
#include <cmath>

#include "leveling/audio/channel_places.h"

namespace quorvane {
namespace {

constexpr double kStepsADb = 10000;

}  // namespace

double rounded(double db) {
    return std::rint(db * kStepsADb) / kStepsADb;
}

LevelMeter::LevelMeter(LevelKind kind, const SndfileHandle& file)
    : kind_(kind),
      channels_(static_cast<std::size_t>(file.channels())),
      meter_(file.channels(), file.samplerate(), {}, 0, loudness_weights(file)) {}

void LevelMeter::add(const std::vector<double>& samples) {
    if (kind_ == LevelKind::Loudness) {
        meter_.add(samples.data(), samples.size() / channels_);
        return;
    }
    for (double sample : samples) {
        squares_ += sample * sample;
    }
    count_ += static_cast<double>(samples.size());
}

double LevelMeter::level_db() const {
    if (kind_ == LevelKind::Rms) {
        return rounded(10 * std::log10(squares_ / std::max(count_, 1.0)));
    }
    return rounded(meter_.integrated_lufs());
}

}  // namespace quorvane
