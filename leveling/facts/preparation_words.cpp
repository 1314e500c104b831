#include "leveling/facts/preparation_words.h"

#include <fmt/format.h>

#include <cmath>

namespace quorvane {
namespace {

constexpr double kNotableRaise_db = 20;
constexpr double kNearBackground_db = 12;  // what comes up with a voice is heard beside it

}  // namespace

std::string words_of(const Done& done) {
    const char* plural = done.count == 1 ? "" : "s";
    switch (done.deed) {
        case Deed::Raised:
            return fmt::format("raised by {:.1f} dB before leveling, its noise with it",
                               done.amount);
        case Deed::KeptPausesDown:
            return fmt::format("{} long pause{} ({} min) kept down", done.count, plural,
                               minutes_text(done.amount));
        case Deed::TookRumbleOut:
            return "rumble louder than the voices taken out below 110 Hz";
        case Deed::BroughtBackgroundUp:
            return fmt::format(
                "its background (music, noise or reverberation) is {:.0f} dB under the quietest "
                "voice and comes up with it",
                done.amount);
        case Deed::LeftEvenAlone:
            return "even already, so it got one constant gain";
        case Deed::GaveEachPhraseAGain:
            return fmt::format("a gain for each of {} phrase{}", done.count, plural);
        case Deed::Dithered:
            return "dithered once, at the end";
    }
    return "";
}

std::string minutes_text(double seconds) {
    const auto whole = static_cast<long long>(std::lround(seconds));
    return fmt::format("{}:{:02}", whole / 60, whole % 60);
}

std::vector<Done> done_in(const Preparation& preparation, Phrasing phrasing) {
    std::vector<Done> all;
    const bool everything = phrasing == Phrasing::Everything;
    if (preparation.raised_db >= kNotableRaise_db) {
        all.push_back({Deed::Raised, preparation.raised_db});
    }
    if (preparation.pauses > 0) {
        all.push_back({Deed::KeptPausesDown, preparation.pauses_s, preparation.pauses});
    }
    if (preparation.steep_high_pass) {
        all.push_back({Deed::TookRumbleOut});
    }
    if (preparation.background_under_speech_db < kNearBackground_db && !preparation.even) {
        all.push_back({Deed::BroughtBackgroundUp, preparation.background_under_speech_db});
    }
    if (preparation.even) {
        all.push_back({Deed::LeftEvenAlone});
    } else if (everything && preparation.phrases > 0) {
        all.push_back({Deed::GaveEachPhraseAGain, 0, preparation.phrases});
    }
    if (everything && preparation.dithered) {
        all.push_back({Deed::Dithered});
    }
    return all;
}

std::vector<std::string> words_of(const Preparation& preparation, Phrasing phrasing) {
    std::vector<std::string> words;
    for (const Done& done : done_in(preparation, phrasing)) {
        words.push_back(words_of(done));
    }
    return words;
}

}  // namespace quorvane
