#include "leveling/findings/speech_view.h"

#include <algorithm>

#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

constexpr double kLeastWords_s = 0.4;
constexpr double kRelativeGate_db = 10;

}  // namespace

SpeechView::SpeechView(const SoundProfile& from) : profile(from) {
    for (const Tenth& tenth : profile.tenths) {
        levels_db.insert(levels_db.end(), tenth.speech_db.begin(), tenth.speech_db.end());
    }
    speech = find_speech(levels_db);
    BinLevels levels;
    levels.speech_db = levels_db;
    pauses = find_pauses(levels, speech);
    phrases = find_phrases(levels_db, speech, pauses);
    words_s =
        kBin_s * static_cast<double>(std::count(phrases.words.begin(), phrases.words.end(), true));
    const Stretch whole{0, static_cast<long long>(levels_db.size())};
    speech_db = speech_level(levels_db, phrases.words, whole);
    double sum = 0;
    double count = 0;
    for (std::size_t i = 0; i < profile.tenths.size(); ++i) {
        if (has_words(i) && level(i) > speech_db - kRelativeGate_db) {
            for (int c = 0; c < profile.channels; ++c) {
                const auto at = static_cast<std::size_t>(c);
                const auto mean = static_cast<double>(profile.tenths[i].mean[at]);
                sum += static_cast<double>(profile.tenths[i].power[at]) - mean * mean;
            }
            count += profile.channels;
        }
    }
    power_db = level_of_power(count > 0 ? sum / count : 0);
}

bool SpeechView::has_speech() const {
    return words_s >= kLeastWords_s;
}

FindingPlace SpeechView::place_of(const Stretch& bins) const {
    const double bin_s = profile.tenth_s() / 2;
    return {static_cast<double>(bins.begin) * bin_s, static_cast<double>(bins.end) * bin_s};
}

double SpeechView::level(std::size_t tenth) const {
    return static_cast<double>(std::max(levels_db[2 * tenth], levels_db[2 * tenth + 1]));
}

}  // namespace quorvane
