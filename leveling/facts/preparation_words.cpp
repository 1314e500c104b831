#include "leveling/facts/preparation_words.h"

#include <fmt/format.h>

#include <cmath>

namespace quorvane {
namespace {

constexpr double kNotableRaise_db = 20;
constexpr double kNearBackground_db = 12;  // what comes up with a voice is heard beside it

std::string minutes(double seconds) {
    const auto whole = static_cast<long long>(std::lround(seconds));
    return fmt::format("{}:{:02}", whole / 60, whole % 60);
}

}  // namespace

std::vector<std::string> words_of(const Preparation& preparation, Telling telling) {
    std::vector<std::string> words;
    const bool everything = telling == Telling::Everything;
    if (preparation.raised_db >= kNotableRaise_db) {
        words.push_back(fmt::format("raised by {:.1f} dB before leveling, its noise with it",
                                    preparation.raised_db));
    }
    if (preparation.pauses > 0) {
        words.push_back(fmt::format("{} long pause{} ({} min) kept down", preparation.pauses,
                                    preparation.pauses == 1 ? "" : "s",
                                    minutes(preparation.pauses_s)));
    }
    if (preparation.steep_high_pass) {
        words.emplace_back("rumble louder than the voices taken out below 110 Hz");
    }
    if (preparation.background_under_speech_db < kNearBackground_db && !preparation.even) {
        words.push_back(
            fmt::format("its background (music, noise or reverberation) is {:.0f} dB under the "
                        "quietest voice and comes up with it",
                        preparation.background_under_speech_db));
    }
    if (preparation.even) {
        words.emplace_back("even already, so it got one constant gain");
    } else if (everything && preparation.phrases > 0) {
        words.push_back(fmt::format("a gain for each of {} phrase{}", preparation.phrases,
                                    preparation.phrases == 1 ? "" : "s"));
    }
    if (everything && preparation.dithered) {
        words.emplace_back("dithered once, at the end");
    }
    return words;
}

}  // namespace quorvane
