#include "leveling/preparation/bin_levels.h"

#include <algorithm>
#include <cmath>

#include "Common/units.h"
#include "leveling/audio/portable_math.h"
#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

constexpr double kSpeechFrom_hz = 150;
constexpr double kSpeechTo_hz = 5000;
constexpr double kLowTo_hz = 120;
constexpr double kHighestCorner = 0.45;  // of the sample rate
// Between samples that are more than some 2 dB under the bin's highest, no wave is looked at: the
// finder allows for a rise of 8 dB over them, of which sound has a third.
constexpr double kSteepest = 1.9;
constexpr double kQuality = 0.70710678118654752;

/** The first section of the K-weighting: the head's effect, as a shelf of 4 dB from 1.7 kHz on. */
Section head_shelf(int sample_rate_hz) {
    constexpr double kCorner_hz = 1681.974450955533;
    constexpr double kShelfQuality = 0.7071752369554196;
    constexpr double kHigh = 1.584864701130855;    // 10^(3.999843853973347 / 20)
    constexpr double kMiddle = 1.258720930232562;  // that to the power of 0.4996667741545416
    const double turns = kCorner_hz / sample_rate_hz;
    const double k = quorvane::portable_sin_pi(turns) / quorvane::portable_sin_pi(turns + 0.5);
    const double a0 = 1 + k / kShelfQuality + k * k;
    return {(kHigh + kMiddle * k / kShelfQuality + k * k) / a0, 2 * (k * k - kHigh) / a0,
            (kHigh - kMiddle * k / kShelfQuality + k * k) / a0, 2 * (k * k - 1) / a0,
            (1 - k / kShelfQuality + k * k) / a0};
}

}  // namespace

double counted_peak(double sample_peak, double true_peak) {
    static const double kRoom = quorvane::portable_amplitude(-kTruePeakRoom_db);
    return std::max(sample_peak, true_peak * kRoom);
}

LevelAnalyser::LevelAnalyser(int channels,
                             int sample_rate_hz,
                             const std::vector<Section>& high_pass_sections,
                             PeakOf peak_of)
    : channels_(channels),
      bin_frames_(std::max(1, ms_to_frames(kBin_ms, sample_rate_hz))),
      peak_of_(peak_of),
      filters_{
          PairFilter(high_pass(kSpeechFrom_hz, kQuality, sample_rate_hz)),
          PairFilter(low_pass(
              std::min(kSpeechTo_hz, kHighestCorner * sample_rate_hz), kQuality, sample_rate_hz)),
          PairFilter(low_pass(kLowTo_hz, kQuality, sample_rate_hz)),
          PairFilter(head_shelf(sample_rate_hz))},
      high_pass_(high_pass_sections, channels),
      finder_(channels, 0) {}

/** pass(x, i) gives frame x, which is at i, behind the high-pass. */
template <int Channels, class Pass>
void LevelAnalyser::measure_with(const double* samples, long long frames, const Pass& pass) {
    PairFilter from = filters_[0];  // local copies stay in registers
    PairFilter to = filters_[1];
    PairFilter below = filters_[2];
    PairFilter shelf = filters_[3];
    Pair speech = speech_;
    Pair low = low_;
    Pair weighted = weighted_;
    Pair highest = highest_;
    Pair raw_highest = raw_highest_;
    Pair farthest = farthest_;
    const Pair first = first_;
    for (long long i = 0; i < frames; ++i) {
        const Pair x =
            Channels == 1 ? Pair{samples[i], 0} : Pair{samples[2 * i], samples[2 * i + 1]};
        const Pair y = pass(x, i);
        const Pair in_band = to.next(from.next(x));
        const Pair under = below.next(x);
        speech += in_band * in_band;
        low += under * under;
        const Pair heard = shelf.next(y);
        weighted += heard * heard;
        const Pair squared = y * y;
        highest = squared > highest ? squared : highest;
        const Pair raw = x * x;
        raw_highest = raw > raw_highest ? raw : raw_highest;
        const Pair away = (x - first) * (x - first);
        farthest = away > farthest ? away : farthest;
    }
    filters_ = {from, to, below, shelf};
    speech_ = speech;
    low_ = low;
    weighted_ = weighted;
    highest_ = highest;
    raw_highest_ = raw_highest;
    farthest_ = farthest;
}

/**
 * Of some frames, and behind the high-pass. A recursion waits for itself, so a high-pass of one
 * section runs beside the other filters: `passed` is null then.
 */
template <int Channels>
void LevelAnalyser::measure(const double* samples, const double* passed, long long frames) {
    if (passed == nullptr) {
        PairFilter local = *high_pass_.only_section();
        measure_with<Channels>(samples, frames,
                               [&local](Pair x, long long /*at*/) { return local.next(x); });
        *high_pass_.only_section() = local;
        return;
    }
    measure_with<Channels>(samples, frames, [passed](Pair /*x*/, long long at) {
        return Channels == 1 ? Pair{passed[at], 0} : Pair{passed[2 * at], passed[2 * at + 1]};
    });
}

void LevelAnalyser::process(double* samples, long long frames) {
    if (!has_first_ && frames > 0) {
        first_ = Pair{samples[0], samples[channels_ - 1]};
        first_[1] = channels_ == 1 ? 0 : first_[1];
        has_first_ = true;
    }
    const bool beside = peak_of_ == PeakOf::kSamples && high_pass_.only_section() != nullptr;
    if (!beside) {
        passed_.assign(samples, samples + frames * channels_);
        high_pass_.process(passed_.data(), frames);
    }
    for (long long done = 0; done < frames;) {
        const long long now = std::min(frames - done, bin_frames_ - frames_in_bin_);
        const double* const passed = beside ? nullptr : passed_.data() + done * channels_;
        if (channels_ == 1) {
            measure<1>(samples + done, passed, now);
        } else {
            measure<2>(samples + 2 * done, passed, now);
        }
        if (peak_of_ == PeakOf::kWave) {
            find_true_peak(passed_.data() + done * channels_, now);
        }
        done += now;
        frames_in_bin_ += now;
        if (frames_in_bin_ == bin_frames_) {
            finish_bin();
        }
    }
    if (beside) {
        high_pass_.only_section()->drop_tail();
    }
}

/** Behind measure(), which has found the bin's highest sample. */
void LevelAnalyser::find_true_peak(const double* passed, long long frames) {
    const double highest = std::sqrt(std::max(highest_[0], highest_[1]));
    finder_.set_unnoticed(std::max(highest, true_peak_) * kSteepest);
    true_peaks_.resize(static_cast<std::size_t>(frames));
    finder_.find(passed, static_cast<std::size_t>(frames), true_peaks_.data());
    true_peak_ = std::max(true_peak_, *std::max_element(true_peaks_.begin(), true_peaks_.end()));
}

void LevelAnalyser::finish_bin() {
    const auto frames = static_cast<double>(frames_in_bin_);
    const double highest = std::max(highest_[0], highest_[1]);
    levels_.speech_db.push_back(
        static_cast<float>(level_of_power((speech_[0] + speech_[1]) / frames)));
    levels_.low_db.push_back(static_cast<float>(level_of_power((low_[0] + low_[1]) / frames)));
    levels_.weighted_db.push_back(
        static_cast<float>(level_of_power((weighted_[0] + weighted_[1]) / frames)));
    levels_.louder_db.push_back(
        static_cast<float>(level_of_power(std::max(weighted_[0], weighted_[1]) / frames)));
    levels_.peak.push_back(static_cast<float>(counted_peak(std::sqrt(highest), true_peak_)));
    true_peak_ = 0;
    peak_ = std::max(peak_, std::sqrt(std::max(raw_highest_[0], raw_highest_[1])));
    speech_ = low_ = weighted_ = highest_ = raw_highest_ = Pair{0, 0};
    frames_in_bin_ = 0;
    for (PairFilter& filter : filters_) {
        filter.drop_tail();
    }
}

bool LevelAnalyser::is_constant() const {
    return farthest_[0] == 0 && farthest_[1] == 0;
}

void LevelAnalyser::finish() {
    if (frames_in_bin_ > 0) {
        finish_bin();
    }
}

}  // namespace quorvane
