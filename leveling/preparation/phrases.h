#pragma once

#include <vector>

#include "leveling/preparation/pauses.h"

namespace quorvane {

/** A run of speech that gets one gain. */
struct Phrase {
    Stretch bins;         // from the gap before its first word to its last
    double level_db = 0;  // of its words
};

/** The words of a recording, and how they belong together. */
struct Phrases {
    std::vector<Phrase> phrases;  // in order
    std::vector<bool> words;      // the bins that belong to one
};

/**
 * Finds the phrases of a recording: stretches of one speaker at one distance from the microphone.
 *
 * Words are bins that stand out of their neighbourhood; gaps between them, and the quietest place
 * of a run longer than 1.5 s, cut the recording into units. Units become phrases where that costs
 * the least: the squared deviations of their levels from their phrase's, times their seconds, and a
 * cost for each phrase, which is smaller behind a long gap (optimal partitioning: B. Jackson et
 * al., "An algorithm for optimal partitioning of data on an interval", IEEE Signal Processing
 * Letters 12 (2005)). So a turn of two seconds that is 3 dB louder than those around it is a phrase
 * of its own, and a loud word is not.
 *
 * levels_db: K-weighted, of bins of 50 ms. speech: what find_speech found. pauses: left out.
 */
Phrases find_phrases(const std::vector<float>& levels_db,
                     const std::vector<bool>& speech,
                     const std::vector<Stretch>& pauses);

}  // namespace quorvane
