#include "leveling/conversation/voices.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <utility>

#include "leveling/conversation/modes.h"
#include "leveling/preparation/levels.h"
#include "leveling/preparation/pauses.h"

namespace quorvane {
namespace {

using Levels = std::vector<float>;

// In bins of 50 ms.
constexpr long long kHalfWindow = 2;     // levels are taken over 250 ms
constexpr long long kLongestHole = 6;    // within a turn
constexpr long long kShortestSound = 3;  // that counts as the owner's
constexpr std::size_t kLeastOwn = 20;    // of a voice alone: below, nothing is known of it

constexpr double kFloor_db = -100;       // tracks that were edited are silent between turns
constexpr double kNoiseShare = 0.1;      // the level that a tenth of the bins is below
constexpr double kAboveNoise_db = 6;     // of what counts as sound
constexpr double kLeastDistance_db = 7;  // of the two modes; nearer ones are one voice
constexpr double kMargin = 0.25;      // of the modes' distance: nearer to the middle is undecided
constexpr double kLoud_db = 10;       // under the voice's mean: loud enough to measure spill
constexpr double kMostSpill_db = 60;  // where nothing of a voice was heard

// How far above what is expected of the others, and under the owner's own level.
constexpr double kBegin_db = 6;
constexpr double kLeastBegin_db = 3;
constexpr double kGoOnShare = 0.5;  // of what it takes to begin
constexpr double kBeginUnder_db = 18;
constexpr double kGoOnUnder_db = 26;

/** Levels of the mean power of 250 ms around each bin. */
Levels smoothed(const Levels& levels_db) {
    const auto count = static_cast<long long>(levels_db.size());
    std::vector<double> powers;
    for (const float level : levels_db) {
        powers.push_back(power_of_level(static_cast<double>(level)));
    }
    Levels result(levels_db.size());
    for (long long i = 0; i < count; ++i) {
        const long long from = std::max(0LL, i - kHalfWindow);
        const long long to = std::min(count, i + kHalfWindow + 1);
        const double sum = std::accumulate(powers.begin() + from, powers.begin() + to, 0.0);
        const double level = level_of_power(sum / static_cast<double>(to - from));
        result[static_cast<std::size_t>(i)] = static_cast<float>(std::max(level, kFloor_db));
    }
    return result;
}

class Search {
  public:
    explicit Search(const std::vector<Levels>& levels_db) : tracks_(levels_db.size()) {
        for (const Levels& levels : levels_db) {
            levels_.push_back(smoothed(levels));
            noise_.push_back(percentile(levels_.back(), kNoiseShare));
        }
        bins_ = levels_.empty() ? 0 : levels_.front().size();
    }

    Voices go() {
        const std::vector<std::vector<bool>> alone = find_winners();
        voices_.level_db.resize(tracks_);
        voices_.spill_db.assign(tracks_, std::vector<double>(tracks_));
        for (std::size_t track = 0; track < tracks_; ++track) {
            measure_voice(track, alone[track]);
        }
        for (std::size_t track = 0; track < tracks_; ++track) {
            voices_.speaks.push_back(find_owner(track));
        }
        return std::move(voices_);
    }

  private:
    double level(std::size_t track, std::size_t bin) const {
        return static_cast<double>(levels_[track][bin]);
    }

    bool is_sound(std::size_t track, std::size_t bin) const {
        return level(track, bin) > noise_[track] + kAboveNoise_db;
    }

    /** The bins in which each track wins against all others. */
    std::vector<std::vector<bool>> find_winners() const {
        std::vector<std::vector<bool>> wins(tracks_, std::vector<bool>(bins_));
        for (std::size_t track = 0; track < tracks_; ++track) {
            for (std::size_t bin = 0; bin < bins_; ++bin) {
                wins[track][bin] = is_sound(track, bin);
            }
        }
        for (std::size_t one = 0; one < tracks_; ++one) {
            for (std::size_t other = one + 1; other < tracks_; ++other) {
                judge_pair(one, other, wins[one], wins[other]);
            }
        }
        return wins;
    }

    void judge_pair(std::size_t one,
                    std::size_t other,
                    std::vector<bool>& one_wins,
                    std::vector<bool>& other_wins) const {
        Levels differences;
        double lead = 0;
        for (std::size_t bin = 0; bin < bins_; ++bin) {
            if (is_sound(one, bin) || is_sound(other, bin)) {
                differences.push_back(levels_[one][bin] - levels_[other][bin]);
                lead += (level(one, bin) - noise_[one]) - (level(other, bin) - noise_[other]);
            }
        }
        const Modes modes = split_at_modes(differences);
        double over = modes.threshold + kMargin * modes.distance();
        double under = modes.threshold - kMargin * modes.distance();
        if (!modes.found || modes.distance() < kLeastDistance_db) {
            // Only one of them speaks: the one that stands out of its noise farther.
            over = under = lead > 0 ? -std::numeric_limits<double>::infinity()
                                    : std::numeric_limits<double>::infinity();
        }
        for (std::size_t bin = 0; bin < bins_; ++bin) {
            const double difference = level(one, bin) - level(other, bin);
            one_wins[bin] = one_wins[bin] && difference > over;
            other_wins[bin] = other_wins[bin] && difference < under;
        }
    }

    /** alone: where the track wins against all others. */
    void measure_voice(std::size_t track, const std::vector<bool>& alone) {
        const Levels& own = levels_[track];
        const auto count = static_cast<std::size_t>(std::count(alone.begin(), alone.end(), true));
        voices_.level_db[track] =
            count < kLeastOwn ? kSilence_db
                              : speech_level(own, alone, {0, static_cast<long long>(bins_)});
        for (std::size_t other = 0; other < tracks_; ++other) {
            Levels differences;
            for (std::size_t bin = 0; bin < bins_ && !voices_.is_silent(track); ++bin) {
                if (alone[bin] && level(track, bin) > voices_.level_db[track] - kLoud_db) {
                    differences.push_back(own[bin] - levels_[other][bin]);
                }
            }
            voices_.spill_db[track][other] =
                differences.empty() ? kMostSpill_db
                                    : std::min(percentile(differences, 0.5), kMostSpill_db);
        }
    }

    /** What is to be expected on a track while its owner is silent, dB. */
    double expected(std::size_t track, std::size_t bin) const {
        double power = power_of_level(noise_[track]);
        for (std::size_t other = 0; other < tracks_; ++other) {
            if (other != track && !voices_.is_silent(other)) {
                power += power_of_level(level(other, bin) - voices_.spill_db[other][track]);
            }
        }
        return level_of_power(power);
    }

    std::vector<bool> find_owner(std::size_t track) const {
        std::vector<bool> speaks(bins_);
        if (voices_.is_silent(track)) {
            return speaks;
        }
        double begin_db = kBegin_db;
        for (std::size_t other = 0; other < tracks_; ++other) {
            if (other != track) {
                begin_db = std::min(begin_db, voices_.spill_db[other][track] / 2);
            }
        }
        begin_db = std::max(begin_db, kLeastBegin_db);
        bool is_on = false;
        for (std::size_t bin = 0; bin < bins_; ++bin) {
            const double above = level(track, bin) - expected(track, bin);
            const double under = voices_.level_db[track] - level(track, bin);
            is_on = is_on ? above > begin_db * kGoOnShare && under < kGoOnUnder_db
                          : above > begin_db && under < kBeginUnder_db;
            speaks[bin] = is_on;
        }
        fill_holes(speaks, true, kLongestHole);
        fill_holes(speaks, false, kShortestSound - 1);
        return speaks;
    }

    /** Turns the runs of !value that lie between two of value, and are that short, into value. */
    static void fill_holes(std::vector<bool>& values, bool value, long long longest) {
        const auto count = static_cast<long long>(values.size());
        long long last = -1;  // of value
        for (long long i = 0; i < count; ++i) {
            if (values[static_cast<std::size_t>(i)] != value) {
                continue;
            }
            if (last >= 0 && i - last - 1 <= longest) {
                std::fill(values.begin() + last + 1, values.begin() + i, value);
            }
            last = i;
        }
    }

    std::size_t tracks_;
    std::size_t bins_ = 0;
    std::vector<Levels> levels_;
    std::vector<double> noise_;
    Voices voices_;
};

}  // namespace

bool Voices::is_silent(std::size_t track) const {
    return level_db[track] <= kSilence_db;
}

Voices find_voices(const std::vector<std::vector<float>>& levels_db) {
    return Search(levels_db).go();
}

std::vector<bool> others_speak(const Voices& voices, std::size_t track) {
    std::vector<bool> result(voices.speaks[track].size());
    for (std::size_t other = 0; other < voices.speaks.size(); ++other) {
        for (std::size_t bin = 0; other != track && bin < result.size(); ++bin) {
            result[bin] = result[bin] || voices.speaks[other][bin];
        }
    }
    return result;
}

}  // namespace quorvane
