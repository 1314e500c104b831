#include "leveling/conversation/balance.h"

#include <algorithm>
#include <cstddef>

#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

constexpr double kWords_db = -16.8;  // as in a recording that is leveled by itself
constexpr int kRounds = 4;

class Balance {
  public:
    explicit Balance(const std::vector<BalancedTrack>& tracks)
        : tracks_(tracks), goals_(tracks.size(), kWords_db), curves_(tracks.size()) {}

    std::vector<std::vector<float>> go() {
        make_curves();
        for (int round = 0; round < kRounds; ++round) {
            std::vector<double> lacks(tracks_.size());
            for (std::size_t i = 0; i < tracks_.size(); ++i) {
                lacks[i] = is_silent(i) ? 0 : kWords_db - level_in_mix(i);
            }
            std::transform(goals_.begin(), goals_.end(), lacks.begin(), goals_.begin(),
                           [](double goal, double lack) { return goal + lack; });
            make_curves();
        }
        return curves_;
    }

  private:
    bool is_silent(std::size_t track) const {
        return tracks_[track].speech->phrases.phrases.empty();
    }

    void make_curves() {
        double silent_db = 0;  // a track without a voice is not raised, and goes down with all
        for (std::size_t i = 0; i < tracks_.size(); ++i) {
            if (!is_silent(i)) {
                curves_[i] = track_curve(*tracks_[i].speech, goals_[i], 0);
                silent_db = std::min(silent_db, gain_of_words(i));
            }
        }
        for (std::size_t i = 0; i < tracks_.size(); ++i) {
            if (is_silent(i)) {
                curves_[i] = track_curve(*tracks_[i].speech, 0, silent_db);
            }
        }
    }

    /** The mean over a voice's words, dB. */
    double gain_of_words(std::size_t track) const {
        const std::vector<bool>& words = tracks_[track].speech->phrases.words;
        double sum = 0;
        double count = 0;
        for (std::size_t i = 0; i < words.size(); ++i) {
            sum += words[i] ? static_cast<double>(curves_[track][i]) : 0;
            count += words[i] ? 1 : 0;
        }
        return sum / std::max(count, 1.0);
    }

    /** A voice where it speaks alone, with its spill in all tracks; anywhere if it never does. */
    double level_in_mix(std::size_t track) const {
        const TrackSpeech& speech = *tracks_[track].speech;
        std::vector<bool> words = speech.phrases.words;
        for (std::size_t i = 0; i < words.size(); ++i) {
            words[i] = words[i] && !speech.others[i];
        }
        if (std::find(words.begin(), words.end(), true) == words.end()) {
            words = speech.phrases.words;
        }
        std::vector<float> levels(words.size(), static_cast<float>(kSilence_db));
        for (std::size_t i = 0; i < words.size(); ++i) {
            levels[i] = words[i] ? mixed_level(track, i) : levels[i];
        }
        return speech_level(levels, words, {0, static_cast<long long>(words.size())});
    }

    /** Of all tracks, in one bin of a track. */
    float mixed_level(std::size_t track, std::size_t bin) const {
        const BalancedTrack& own = tracks_[track];
        const double middle_s = own.time.common_s((static_cast<double>(bin) + 0.5) * own.bin_s);
        double power = 0;
        for (std::size_t i = 0; i < tracks_.size(); ++i) {
            const double other_bin = tracks_[i].time.own_s(middle_s) / tracks_[i].bin_s;
            const std::size_t at =
                i == track ? bin : static_cast<std::size_t>(std::max(other_bin, 0.0));
            if (other_bin >= 0 && at < curves_[i].size()) {
                power += power_of_level(static_cast<double>(tracks_[i].levels->louder_db[at]) +
                                        static_cast<double>(curves_[i][at]));
            }
        }
        return static_cast<float>(level_of_power(power));
    }

    const std::vector<BalancedTrack>& tracks_;
    std::vector<double> goals_;
    std::vector<std::vector<float>> curves_;
};

}  // namespace

std::vector<std::vector<float>> balanced_curves(const std::vector<BalancedTrack>& tracks) {
    return Balance(tracks).go();
}

}  // namespace quorvane
