#include "leveling/conversation/track_gains.h"

#include <algorithm>
#include <cstddef>

#include "leveling/preparation/curve_parts.h"
#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

// In bins of 50 ms.
constexpr long long kShortestTurn = 12;
constexpr long long kTurnGap = 16;  // between two turns, each of which gets gains of its own
constexpr long long kRamp = 5;
constexpr long long kLongPhrase = 30;  // of words; a shorter one is not raised over its neighbours
constexpr long long kBefore = 2;       // a word begins with what is too soft to be found
constexpr long long kBehind = 5;       // and ends with it
constexpr long long kShortestDuck = 12;  // what is shorter would be heard as pumping

constexpr double kMostAround_db = 18;  // of a phrase's gain from the middle one
constexpr double kDeepest_db = 12;
constexpr double kDuck_db = 1.2;    // a bin
constexpr double kReturn_db = 2.4;  // a bin

/** The runs of true, in order. */
std::vector<Stretch> runs_of(const std::vector<bool>& values) {
    std::vector<Stretch> runs;
    const auto count = static_cast<long long>(values.size());
    for (long long i = 0; i < count; ++i) {
        if (!values[static_cast<std::size_t>(i)]) {
            continue;
        }
        if (runs.empty() || runs.back().end != i) {
            runs.push_back({i, i});
        }
        runs.back().end = i + 1;
    }
    return runs;
}

/** Of the owner's phrases, dB. */
std::vector<double> gains_of(const Phrases& phrases, double goal_db) {
    std::vector<double> gains = phrase_gains(phrases, goal_db, kMostAround_db);
    for (std::size_t i = 0; i < gains.size() && gains.size() > 1; ++i) {
        const Stretch bins = phrases.phrases[i].bins;
        if (std::count(phrases.words.begin() + bins.begin, phrases.words.begin() + bins.end, true) <
            kLongPhrase) {
            const double before = i > 0 ? gains[i - 1] : gains[i + 1];
            const double after = i + 1 < gains.size() ? gains[i + 1] : gains[i - 1];
            gains[i] = std::min(gains[i], std::max(before, after));
        }
    }
    return gains;
}

/** Between two phrases: the lower of both gains, with a ramp to the higher one beside its phrase.
 */
void fill_gap(std::vector<float>& curve, Stretch gap, double before, double after) {
    fill(curve, gap, std::min(before, after));
    const long long length = std::min(kRamp, gap.length());
    if (before > after) {
        ramp(curve, {gap.begin, gap.begin + length}, before, after);
    } else {
        ramp(curve, {gap.end - length, gap.end}, before, after);
    }
}

}  // namespace

Phrases find_own_phrases(const std::vector<float>& levels_db, const std::vector<bool>& own) {
    std::vector<bool> turns(own.size());
    std::vector<float> masked(levels_db.size(), static_cast<float>(kSilence_db));
    std::vector<Stretch> blocks;
    for (const Stretch& run : runs_of(own)) {
        if (run.length() < kShortestTurn) {
            continue;
        }
        std::fill(turns.begin() + run.begin, turns.begin() + run.end, true);
        std::copy(levels_db.begin() + run.begin, levels_db.begin() + run.end,
                  masked.begin() + run.begin);
        if (blocks.empty() || run.begin - blocks.back().end > kTurnGap) {
            blocks.push_back(run);
        }
        blocks.back().end = run.end;
    }
    Phrases result;
    result.words.resize(own.size());
    for (const Stretch& block : blocks) {
        const Phrases found =
            find_phrases({masked.begin() + block.begin, masked.begin() + block.end},
                         {turns.begin() + block.begin, turns.begin() + block.end}, {});
        for (const Phrase& phrase : found.phrases) {
            result.phrases.push_back(
                {{phrase.bins.begin + block.begin, phrase.bins.end + block.begin},
                 phrase.level_db});
        }
        std::copy(found.words.begin(), found.words.end(), result.words.begin() + block.begin);
    }
    return result;
}

std::vector<float> duck_curve(const std::vector<bool>& own, const std::vector<bool>& others) {
    const auto count = static_cast<long long>(own.size());
    std::vector<bool> opens(own.size());
    for (const Stretch& run : runs_of(own)) {
        std::fill(opens.begin() + std::max(0LL, run.begin - kBefore),
                  opens.begin() + std::min(count, run.end + kBehind), true);
    }
    std::vector<bool> ducks(own.size());
    const auto first = std::find(others.begin(), others.end(), true) - others.begin();
    bool is_down = first < std::find(opens.begin(), opens.end(), true) - opens.begin();
    for (std::size_t i = 0; i < ducks.size(); ++i) {
        is_down = !opens[i] && (is_down || others[i]);
        ducks[i] = is_down;
    }
    std::vector<float> curve(own.size());
    for (const Stretch& run : runs_of(ducks)) {
        const bool is_between = run.begin > 0 && run.end < count;
        if (is_between && run.length() < kShortestDuck) {
            continue;
        }
        for (long long i = run.begin; i < run.end; ++i) {
            const double since =
                run.begin > 0 ? kDuck_db * static_cast<double>(i - run.begin + 1) : kDeepest_db;
            const double until =
                run.end < count ? kReturn_db * static_cast<double>(run.end - i) : kDeepest_db;
            curve[static_cast<std::size_t>(i)] =
                static_cast<float>(std::min({kDeepest_db, since, until}));
        }
    }
    return curve;
}

std::vector<float> track_curve(const TrackSpeech& speech, double goal_db, double silent_db) {
    const auto count = static_cast<long long>(speech.own.size());
    std::vector<float> curve(speech.own.size(), static_cast<float>(silent_db));
    const std::vector<Phrase>& phrases = speech.phrases.phrases;
    if (!phrases.empty()) {
        const std::vector<double> gains = gains_of(speech.phrases, goal_db);
        fill(curve, {0, phrases.front().bins.begin}, gains.front());
        fill(curve, {phrases.back().bins.end, count}, gains.back());
        for (std::size_t i = 0; i < phrases.size(); ++i) {
            fill(curve, phrases[i].bins, gains[i]);
            if (i + 1 < phrases.size()) {
                fill_gap(curve, {phrases[i].bins.end, phrases[i + 1].bins.begin}, gains[i],
                         gains[i + 1]);
            }
        }
    }
    const std::vector<float> duck = duck_curve(speech.own, speech.others);
    std::transform(curve.begin(), curve.end(), duck.begin(), curve.begin(),
                   [](float gain, float down) { return gain - down; });
    return curve;
}

}  // namespace quorvane
