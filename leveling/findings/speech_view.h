#pragma once

#include <vector>

#include "leveling/facts/finding.h"
#include "leveling/findings/sound_profile.h"
#include "leveling/preparation/phrases.h"

namespace quorvane {

/** Where the speech of a profile is, found as the preparation finds it. Levels in dB. */
struct SpeechView {
    explicit SpeechView(const SoundProfile& from);

    /** Whether there is enough of it to judge a recording by: 0.4 s. */
    bool has_speech() const;

    /** Words in half of a tenth or both. */
    bool has_words(std::size_t tenth) const { return words(2 * tenth) || words(2 * tenth + 1); }

    bool words(std::size_t bin) const { return phrases.words[bin]; }

    /** Of bins. */
    FindingPlace place_of(const Stretch& bins) const;

    /** The louder half of a tenth. */
    double level(std::size_t tenth) const;

    const SoundProfile& profile;
    std::vector<float> levels_db;  // of bins of 50 ms, two to a tenth
    std::vector<bool> speech;
    std::vector<Stretch> pauses;  // of three seconds and more
    Phrases phrases;
    double words_s = 0;
    double speech_db = 0;  // of the words (the relative gate of ITU-R BS.1770)
    double power_db = 0;   // the same of the whole band, per channel
};

}  // namespace quorvane
