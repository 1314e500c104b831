#include "leveling/preparation/gain_curve.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "leveling/preparation/curve_parts.h"
#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

constexpr double kMostAround_db = 32;  // of a phrase's gain from the middle one

// In bins of 50 ms, for gaps.
constexpr long long kRamp = 5;
constexpr long long kHold = 5;      // before a gap sinks
constexpr double kSink_db = 0.8;    // a bin
constexpr double kReturn_db = 2.4;  // a bin
constexpr double kDeepest_db = 6;
constexpr double kUnderSpeech_db = 18;  // a background that may sink

constexpr int kRounds = 2;            // of making up for what peaks take
constexpr double kMostMadeUp_db = 2;  // of a phrase

constexpr double kLeastTrim_db = 0.01;  // rounding alone moves no gain

// Of the excess of a bin's highest peak, what the limiter takes from the bin's level: it is back
// within a quarter of the bin.
constexpr double kTaken = 0.6;

// Of the wave over its samples: what a sine at a quarter of the sample rate has at most.
constexpr double kWaveRise_db = 3.1;

constexpr double kAttack_db = 6;     // a bin, before a peak
constexpr double kRelease_db = 1.5;  // a bin, behind it

class CurveBuilder {
  public:
    CurveBuilder(const BinLevels& levels, const Phrases& phrases, const CurveGoal& goal)
        : levels_(levels),
          phrases_(phrases.phrases),
          goal_(goal),
          gains_(phrase_gains(phrases, goal.speech_db, kMostAround_db)),
          gains_without_peaks_(gains_),
          mean_(mean_gain()),
          curve_(levels.speech_db.size()) {}

    /**
     * Gives each phrase what its peaks took away from its level, as far as that is little: a turn
     * with sharp peaks is as loud as its neighbours then.
     */
    void make_up(const std::vector<bool>& words) {
        const std::vector<float> heard = limited_curve(levels_.peak, goal_.ceiling_db, curve_);
        for (std::size_t i = 0; i < phrases_.size(); ++i) {
            const Stretch bins = phrases_[i].bins;
            std::vector<float> level_db(levels_.weighted_db.begin() + bins.begin,
                                        levels_.weighted_db.begin() + bins.end);
            const std::vector<bool> own(words.begin() + bins.begin, words.begin() + bins.end);
            std::transform(level_db.begin(), level_db.end(), heard.begin() + bins.begin,
                           level_db.begin(), [](float level, float gain) { return level + gain; });
            const double now_db = speech_level(level_db, own, {0, bins.length()});
            const double wanted_db = phrases_[i].level_db + gains_without_peaks_[i];
            const double most_db = gains_without_peaks_[i] + kMostMadeUp_db;
            gains_[i] = std::min(gains_[i] + std::max(0.0, wanted_db - now_db), most_db);
        }
    }

    void fill_phrases() {
        for (std::size_t i = 0; i < phrases_.size(); ++i) {
            fill(phrases_[i].bins, gains_[i]);
        }
    }

    /** Between phrases, and before the first and behind the last. */
    void fill_gaps(const std::vector<Stretch>& pauses) {
        const auto count = static_cast<long long>(curve_.size());
        fill({0, phrases_.front().bins.begin}, gains_.front());
        fill({phrases_.back().bins.end, count}, gains_.back());
        for (std::size_t i = 0; i + 1 < phrases_.size(); ++i) {
            const Stretch gap{phrases_[i].bins.end, phrases_[i + 1].bins.begin};
            fill(gap, gains_[i]);
            ramp({std::max(gap.begin, gap.end - kRamp), gap.end}, gains_[i], gains_[i + 1]);
        }
        for (const Stretch& pause : pauses) {
            lower_pause(pause);
        }
    }

    /** Lets the background between words sink, in the gaps of phrases as between them. */
    void sink_gaps(const std::vector<bool>& words) {
        const auto count = static_cast<long long>(words.size());
        for (long long i = 0; i < count; ++i) {
            Stretch gap{i, i};
            while (gap.end < count && !words[static_cast<std::size_t>(gap.end)]) {
                ++gap.end;
            }
            if (gap.length() > 0) {
                sink(gap);
                i = gap.end;
            }
        }
    }

    std::vector<float> take() { return std::move(curve_); }

  private:
    double at(std::size_t bin) const { return static_cast<double>(curve_[bin]); }

    double mean_gain() const {
        double sum = 0;
        double seconds = 0;
        for (std::size_t i = 0; i < gains_.size(); ++i) {
            const auto length = static_cast<double>(phrases_[i].bins.length());
            sum += gains_[i] * length;
            seconds += length;
        }
        return sum / seconds;
    }

    void fill(Stretch range, double gain) { quorvane::fill(curve_, range, gain); }

    void ramp(Stretch range, double from, double to) { quorvane::ramp(curve_, range, from, to); }

    /** A pause's gain is at most that of its neighbours and the mean. */
    void lower_pause(const Stretch& pause) {
        const auto count = static_cast<long long>(curve_.size());
        const double before =
            pause.begin > 0 ? at(static_cast<std::size_t>(pause.begin - 1)) : mean_;
        const double after = pause.end < count ? at(static_cast<std::size_t>(pause.end)) : mean_;
        const double least = std::min({before, after, mean_});
        fill(pause, least);
        const long long length = std::min(kRamp, pause.length() / 2);
        if (pause.begin > 0) {
            ramp({pause.begin, pause.begin + length}, before, least);
        }
        if (pause.end < count) {
            ramp({pause.end - length, pause.end}, least, after);
        }
    }

    void sink(const Stretch& gap) {
        const auto count = static_cast<long long>(curve_.size());
        for (long long i = gap.begin; i < gap.end; ++i) {
            const auto bin = static_cast<std::size_t>(i);
            const double under =
                goal_.speech_db - at(bin) - static_cast<double>(levels_.weighted_db[bin]);
            if (under < kUnderSpeech_db) {
                continue;
            }
            const double since =
                gap.begin > 0
                    ? kSink_db * static_cast<double>(std::max(0LL, i - gap.begin - kHold + 1))
                    : kDeepest_db;
            const double until =
                gap.end < count ? kReturn_db * static_cast<double>(gap.end - i - 1) : kDeepest_db;
            curve_[bin] -= static_cast<float>(std::min({kDeepest_db, since, until}));
        }
    }

    const BinLevels& levels_;
    const std::vector<Phrase>& phrases_;
    CurveGoal goal_;
    std::vector<double> gains_;
    std::vector<double> gains_without_peaks_;
    double mean_;
    std::vector<float> curve_;
};

/**
 * How far the peak of each bin is above the ceiling, dB, below 0 where it is not. The curve is a
 * straight line from bin to bin: a bin's peak may have its neighbour's gain.
 */
std::vector<double> excess_of(const std::vector<float>& peaks,
                              double ceiling_db,
                              const std::vector<float>& curve_db) {
    const std::size_t count = curve_db.size();
    std::vector<double> excess(count);
    for (std::size_t i = 0; i < count; ++i) {
        const float gain = std::max(
            {curve_db[i], curve_db[i > 0 ? i - 1 : i], curve_db[std::min(i + 1, count - 1)]});
        excess[i] = static_cast<double>(gain) + level_of_amplitude(static_cast<double>(peaks[i])) -
                    ceiling_db;
    }
    return excess;
}

/** The greatest of each value, its neighbours and 0. */
std::vector<double> with_neighbours(const std::vector<double>& values) {
    std::vector<double> result(values.size(), 0);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::size_t end = std::min(i + 2, values.size());
        for (std::size_t j = i > 0 ? i - 1 : 0; j < end; ++j) {
            result[j] = std::max(result[j], values[i]);
        }
    }
    return result;
}

}  // namespace

std::vector<float> limited_curve(const std::vector<float>& peaks,
                                 double ceiling_db,
                                 std::vector<float> curve_db) {
    const std::vector<double> excess = excess_of(peaks, ceiling_db, curve_db);
    for (std::size_t i = 0; i < curve_db.size(); ++i) {
        curve_db[i] -= static_cast<float>(kTaken * std::max(0.0, excess[i]));
    }
    return curve_db;
}

std::vector<bool> bins_to_limit(const std::vector<float>& peaks,
                                double ceiling_db,
                                const std::vector<float>& curve_db) {
    std::vector<double> excess = excess_of(peaks, ceiling_db, curve_db);
    for (double& over : excess) {
        over += kWaveRise_db;
    }
    const std::vector<double> over = with_neighbours(excess);
    std::vector<bool> result(over.size());
    std::transform(over.begin(), over.end(), result.begin(), [](double db) { return db > 0; });
    return result;
}

// In dB, so that a peak's ramps are straight lines beside it: steep before it, less steep behind
// it.
void lower_for_peaks(const std::vector<float>& peaks,
                     double ceiling_db,
                     std::vector<float>& curve_db) {
    const std::size_t count = curve_db.size();
    std::vector<double> excess = with_neighbours(excess_of(peaks, ceiling_db, curve_db));
    for (std::size_t i = 1; i < count; ++i) {
        excess[i] = std::max(excess[i], excess[i - 1] - kRelease_db);
    }
    for (std::size_t i = count; i-- > 1;) {
        excess[i - 1] = std::max(excess[i - 1], excess[i] - kAttack_db);
    }
    for (std::size_t i = 0; i < count; ++i) {
        curve_db[i] -= static_cast<float>(excess[i]);
    }
}

std::vector<float> trim_curve(const std::vector<float>& peaks, double ceiling_db) {
    std::vector<float> result(peaks.size(), 0.0F);
    lower_for_peaks(peaks, ceiling_db + kLeastTrim_db, result);
    const bool is_needed =
        std::any_of(result.begin(), result.end(), [](float gain) { return gain < 0; });
    return is_needed ? result : std::vector<float>{};
}

std::vector<float> gain_curve(const BinLevels& levels,
                              const Phrases& phrases,
                              const std::vector<Stretch>& pauses,
                              const CurveGoal& goal) {
    if (phrases.phrases.empty()) {
        return std::vector<float>(levels.speech_db.size(), 0.0F);
    }
    CurveBuilder curve(levels, phrases, goal);
    for (int round = 0;; ++round) {
        curve.fill_phrases();
        curve.fill_gaps(pauses);
        curve.sink_gaps(phrases.words);
        if (round == kRounds) {
            break;
        }
        curve.make_up(phrases.words);
    }
    return curve.take();
}

}  // namespace quorvane
