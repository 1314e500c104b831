#pragma once

#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

namespace quorvane {

enum class Phrasing {
    Notable,    // what is done to few files
    Everything  // also what is done to nearly every file
};

/** One thing that was done around the engine. */
enum class Deed {
    Raised,
    KeptPausesDown,
    TookRumbleOut,
    BroughtBackgroundUp,
    LeftEvenAlone,
    GaveEachPhraseAGain,
    Dithered
};

struct Done {
    Deed deed = Deed::Dithered;
    // Raised: dB; KeptPausesDown: seconds; BroughtBackgroundUp: dB under the quietest voice.
    double amount = 0;
    int count = 0;  // of pauses or phrases
};

/** What was done around the engine, in the order it is shown. */
std::vector<Done> done_in(const Preparation& preparation, Phrasing phrasing);

/** "1:05" */
std::string minutes_text(double seconds);

/**
 * The same in English, each in a few plain words that follow a file's name: "raised by 31.2 dB
 * before leveling".
 */
std::vector<std::string> words_of(const Preparation& preparation, Phrasing phrasing);

std::string words_of(const Done& done);

}  // namespace quorvane
