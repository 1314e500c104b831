#include "leveling/preparation/phrases.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "leveling/preparation/levels.h"
#include "leveling/preparation/pauses.h"

namespace quorvane {
namespace {

// In bins of 50 ms.
constexpr long long kNear = 20;      // to each side: the loudest syllable of a sentence is in it
constexpr long long kFar = 80;       // to each side: more than the longest gap within a phrase
constexpr long long kLongest = 30;   // a unit
constexpr long long kLeastRest = 6;  // of a run that is cut
constexpr long long kHalfRamp = 2;   // the gain moves around the quietest place

constexpr double kUnderNear_db = 12;  // a word's bin is not further under the loudest near it
// Reverberation flattens speech until find_speech takes it for noise; but it is as loud as speech.
constexpr double kUnderFar_db = 10;
constexpr long long kTurnGap = 10;  // no shorter gap is between two turns
constexpr long long kTurn = 200;    // as much of each as is compared

// A short turn that is hidden between louder ones.
constexpr double kLoudWord_db = 6;  // under the loudest near it
constexpr long long kShortestTurn = 10;
constexpr long long kLeastHidden = 6;    // bins of its words
constexpr long long kLeastSyllable = 4;  // of these, one after the other; a click has three
constexpr float kLively_db = 8;
constexpr double kUnderWords_db = 36;    // no voice is further under the others
constexpr std::size_t kQuietShare = 10;  // one bin in so many is background
constexpr double kOverBackground_db = 15;

// What a phrase costs, dB^2 s. Voices change at pauses more than between two words, where one voice
// falls by several dB and rises again.
constexpr double kGapCost = 5;   // behind a gap of kLongGap and more
constexpr double kRunCost = 30;  // behind one of kShortGap and less
constexpr long long kShortGap = 2;
constexpr long long kLongGap = 14;
constexpr std::size_t kMostUnits = 400;  // of a phrase: minutes, so that time grows with the length

double power_at(const std::vector<float>& levels_db, long long bin) {
    return power_of_level(static_cast<double>(levels_db[static_cast<std::size_t>(bin)]));
}

/** Levels of the power over three bins. */
std::vector<float> smoothed(const std::vector<float>& levels_db) {
    const auto count = static_cast<long long>(levels_db.size());
    std::vector<double> powers(levels_db.size());
    for (long long i = 0; i < count; ++i) {
        powers[static_cast<std::size_t>(i)] = power_at(levels_db, i);
    }
    std::vector<float> result(levels_db.size());
    for (long long i = 0; i < count; ++i) {
        const double before = i > 0 ? powers[static_cast<std::size_t>(i - 1)] : 0;
        const double after = i + 1 < count ? powers[static_cast<std::size_t>(i + 1)] : 0;
        result[static_cast<std::size_t>(i)] = static_cast<float>(
            level_of_power((before + powers[static_cast<std::size_t>(i)] + after) / 3));
    }
    return result;
}

/** The largest value within so many bins to each side. */
std::vector<float> largest_around(const std::vector<float>& values, long long reach) {
    const auto count = static_cast<long long>(values.size());
    std::vector<float> result(values.size());
    for (long long i = 0; i < count; ++i) {
        result[static_cast<std::size_t>(i)] =
            *std::max_element(values.begin() + std::max(0LL, i - reach),
                              values.begin() + std::min(count, i + reach + 1));
    }
    return result;
}

std::vector<bool> find_words(const std::vector<float>& levels_db,
                             const std::vector<float>& smooth_db,
                             const std::vector<bool>& speech,
                             const std::vector<Stretch>& pauses) {
    const std::vector<float> near_db = largest_around(smooth_db, kNear);
    const std::vector<float> far_db = largest_around(smooth_db, kFar);
    std::vector<bool> words(levels_db.size());
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto level = static_cast<double>(smooth_db[i]);
        const bool is_voice = speech[i] || level > static_cast<double>(far_db[i]) - kUnderFar_db;
        words[i] = is_voice && level > kSilence_db &&
                   level > static_cast<double>(near_db[i]) - kUnderNear_db;
    }
    for (const Stretch& pause : pauses) {
        std::fill(words.begin() + pause.begin, words.begin() + pause.end, false);
    }
    return words;
}

/** Whether a stretch is as long as a short turn and as lively as speech. */
bool is_lively(std::vector<float> levels_db) {
    if (static_cast<long long>(levels_db.size()) < kShortestTurn) {
        return false;
    }
    std::sort(levels_db.begin(), levels_db.end());
    const float low_db = levels_db[levels_db.size() / 5];
    const float high_db = levels_db[levels_db.size() * 9 / 10];
    return high_db - low_db >= kLively_db;
}

/** Of bins in order, how many follow each other at most. */
long long longest_run(const std::vector<long long>& bins) {
    long long longest = 0;
    long long run = 0;
    for (std::size_t i = 0; i < bins.size(); ++i) {
        run = i > 0 && bins[i] == bins[i - 1] + 1 ? run + 1 : 1;
        longest = std::max(longest, run);
    }
    return longest;
}

/**
 * Finds a short turn of a voice far under its neighbours, whose loudest syllables hide it. The
 * decay of the words before it and the rise of those behind it are left out.
 */
void find_hidden_words(Stretch gap,
                       const std::vector<float>& levels_db,
                       const std::vector<float>& smooth_db,
                       const std::vector<bool>& speech,
                       double least_db,
                       std::vector<bool>& words) {
    const auto level = [&smooth_db](long long bin) {
        return smooth_db[static_cast<std::size_t>(bin)];
    };
    while (gap.length() > 1 && level(gap.begin + 1) <= level(gap.begin)) {
        ++gap.begin;
    }
    while (gap.length() > 1 && level(gap.end - 2) <= level(gap.end - 1)) {
        --gap.end;
    }
    if (!is_lively({levels_db.begin() + gap.begin, levels_db.begin() + gap.end})) {
        return;
    }
    const std::vector<float> inside(smooth_db.begin() + gap.begin, smooth_db.begin() + gap.end);
    const std::vector<float> near_db = largest_around(inside, kNear);
    std::vector<long long> found;
    for (long long i = gap.begin; i < gap.end; ++i) {
        const auto at = static_cast<std::size_t>(i - gap.begin);
        const auto own_db = static_cast<double>(inside[at]);
        if (speech[static_cast<std::size_t>(i)] && own_db > least_db &&
            own_db > static_cast<double>(near_db[at]) - kUnderNear_db) {
            found.push_back(i);
        }
    }
    if (static_cast<long long>(found.size()) >= kLeastHidden &&
        longest_run(found) >= kLeastSyllable) {
        for (const long long bin : found) {
            words[static_cast<std::size_t>(bin)] = true;
        }
    }
}

/** The level that the words of a voice have at least, dB. */
double least_level(const std::vector<float>& levels_db,
                   const std::vector<bool>& words,
                   const std::vector<Stretch>& pauses) {
    std::vector<float> levels = without_pauses(levels_db, pauses);
    const auto quiet = levels.begin() + static_cast<std::ptrdiff_t>(levels.size() / kQuietShare);
    std::nth_element(levels.begin(), quiet, levels.end());
    const double background_db = levels.empty() ? kSilence_db : static_cast<double>(*quiet);
    const double words_db =
        speech_level(levels_db, words, {0, static_cast<long long>(levels_db.size())});
    return std::max(background_db + kOverBackground_db, words_db - kUnderWords_db);
}

/** The gaps between words that are long enough to hide a turn, pauses left out. */
std::vector<Stretch> long_gaps(const std::vector<float>& smooth_db,
                               const std::vector<bool>& words,
                               const std::vector<Stretch>& pauses) {
    const std::vector<float> near_db = largest_around(smooth_db, kNear);
    std::vector<bool> taken = words;
    for (std::size_t i = 0; i < taken.size(); ++i) {
        taken[i] = words[i] && static_cast<double>(smooth_db[i]) >
                                   static_cast<double>(near_db[i]) - kLoudWord_db;
    }
    for (const Stretch& pause : pauses) {
        std::fill(taken.begin() + pause.begin, taken.begin() + pause.end, true);
    }
    std::vector<Stretch> gaps;
    const auto count = static_cast<long long>(taken.size());
    for (long long i = 0; i < count; ++i) {
        Stretch gap{i, i};
        while (gap.end < count && !taken[static_cast<std::size_t>(gap.end)]) {
            ++gap.end;
        }
        if (gap.length() >= kShortestTurn) {
            gaps.push_back(gap);
        }
        i = std::max(i, gap.end);
    }
    return gaps;
}

/** Cuts a run of words where it is quietest until no part is too long. */
void add_units(Stretch run, const std::vector<float>& smooth_db, std::vector<Stretch>& units) {
    while (run.length() > kLongest + kLeastRest) {
        const auto from = smooth_db.begin() + run.begin + kLongest / 2;
        const auto to = smooth_db.begin() + std::min(run.end - kLeastRest, run.begin + kLongest);
        const long long cut = std::min_element(from, to) - smooth_db.begin();
        units.push_back({run.begin, cut});
        run.begin = cut;
    }
    units.push_back(run);
}

std::vector<Stretch> units_of(const std::vector<bool>& words, const std::vector<float>& smooth_db) {
    std::vector<Stretch> units;
    const auto count = static_cast<long long>(words.size());
    for (long long i = 0; i < count; ++i) {
        Stretch run{i, i};
        while (run.end < count && words[static_cast<std::size_t>(run.end)]) {
            ++run.end;
        }
        if (run.length() > 0) {
            add_units(run, smooth_db, units);
            i = run.end;
        }
    }
    return units;
}

/** Sums that grow unit by unit, so that a difference of two is that of all units between. */
struct Sums {
    double seconds = 0;
    double level = 0;   // times seconds
    double square = 0;  // of the level, times seconds
};

/** What it costs to take the units between for one phrase. */
double cost_of(const Sums& before, const Sums& after) {
    const double seconds = after.seconds - before.seconds;
    const double level = after.level - before.level;
    return seconds > 0 ? after.square - before.square - level * level / seconds : 0;
}

std::vector<Sums> sums_of(const std::vector<Stretch>& units,
                          const std::vector<float>& levels_db,
                          const std::vector<bool>& words) {
    std::vector<Sums> sums(1);
    for (const Stretch& unit : units) {
        const double level = speech_level(levels_db, words, unit);
        const std::vector<bool> loud = loud_speech(levels_db, words, unit);
        const double seconds =
            kBin_s * static_cast<double>(std::count(loud.begin(), loud.end(), true));
        const Sums& last = sums.back();
        sums.push_back({last.seconds + seconds, last.level + seconds * level,
                        last.square + seconds * level * level});
    }
    return sums;
}

/**
 * What a phrase costs that begins with a unit, dB^2 s: the longer the gap before it, the sooner
 * another voice begins there.
 */
std::vector<double> costs_of_starts(const std::vector<Stretch>& units) {
    std::vector<double> costs(units.size(), kGapCost);
    for (std::size_t i = 1; i < units.size(); ++i) {
        const long long gap =
            std::clamp(units[i].begin - units[i - 1].end, kShortGap, kLongGap) - kShortGap;
        costs[i] = kRunCost + (kGapCost - kRunCost) * static_cast<double>(gap) /
                                  static_cast<double>(kLongGap - kShortGap);
    }
    return costs;
}

/** The first unit of each phrase of the cheapest partition, in order. */
std::vector<std::size_t> cheapest_partition(const std::vector<Sums>& sums,
                                            const std::vector<Stretch>& units) {
    const std::size_t count = sums.size() - 1;
    std::vector<double> least(count + 1, std::numeric_limits<double>::infinity());
    std::vector<std::size_t> start(count + 1, 0);
    least[0] = 0;
    const std::vector<double> starts_cost = costs_of_starts(units);
    for (std::size_t end = 1; end <= count; ++end) {
        for (std::size_t begin = end > kMostUnits ? end - kMostUnits : 0; begin < end; ++begin) {
            const double cost = least[begin] + cost_of(sums[begin], sums[end]) + starts_cost[begin];
            if (cost < least[end]) {
                least[end] = cost;
                start[end] = begin;
            }
        }
    }
    std::vector<std::size_t> starts;
    for (std::size_t end = count; end > 0; end = start[end]) {
        starts.push_back(start[end]);
    }
    std::reverse(starts.begin(), starts.end());
    return starts;
}

/** What it gains to take two stretches for two phrases, by what is heard of each, dB^2 s. */
double gain_of_cut(const std::vector<float>& levels_db,
                   const std::vector<bool>& words,
                   Stretch before,
                   Stretch after) {
    const auto seconds = [&words](Stretch range) {
        return kBin_s * static_cast<double>(std::count(words.begin() + range.begin,
                                                       words.begin() + range.end, true));
    };
    const double a_s = seconds(before);
    const double b_s = seconds(after);
    const double difference_db =
        speech_level(levels_db, words, before) - speech_level(levels_db, words, after);
    return a_s * b_s / (a_s + b_s) * difference_db * difference_db;
}

/**
 * Cuts a phrase at long gaps between turns that differ. The partition compares mean levels in dB; a
 * turn with a loud beginning is heard louder than that.
 */
void cut_at_turns(Stretch range,
                  const std::vector<Stretch>& units,
                  const std::vector<float>& levels_db,
                  const std::vector<bool>& words,
                  std::vector<Stretch>& phrases) {
    double most = kGapCost;
    std::size_t best = 0;
    for (std::size_t i = 1; i < units.size(); ++i) {
        const Stretch gap{units[i - 1].end, units[i].begin};
        if (gap.begin <= range.begin || gap.end >= range.end || gap.length() < kTurnGap) {
            continue;
        }
        const double gain =
            gain_of_cut(levels_db, words, {std::max(range.begin, gap.begin - kTurn), gap.begin},
                        {gap.end, std::min(range.end, gap.end + kTurn)});
        if (gain > most) {
            most = gain;
            best = i;
        }
    }
    if (best == 0) {
        phrases.push_back(range);
        return;
    }
    cut_at_turns({range.begin, units[best - 1].end}, units, levels_db, words, phrases);
    cut_at_turns({units[best].begin, range.end}, units, levels_db, words, phrases);
}

/**
 * Moves the beginning of each phrase to the quietest place of the gap before it: the first words of
 * a quiet voice are far under a loud one just before, and are not found as words.
 */
void begin_in_gaps(std::vector<Phrase>& phrases, const std::vector<float>& smooth_db) {
    for (std::size_t i = 1; i < phrases.size(); ++i) {
        Stretch& bins = phrases[i].bins;
        const long long from = std::max(phrases[i - 1].bins.end, bins.begin - kNear);
        if (from < bins.begin) {
            const auto quietest =
                std::min_element(smooth_db.begin() + from, smooth_db.begin() + bins.begin);
            bins.begin = std::min(quietest - smooth_db.begin() + kHalfRamp, bins.begin);
        }
    }
}

}  // namespace

Phrases find_phrases(const std::vector<float>& levels_db,
                     const std::vector<bool>& speech,
                     const std::vector<Stretch>& pauses) {
    Phrases result;
    const std::vector<float> smooth_db = smoothed(levels_db);
    result.words = find_words(levels_db, smooth_db, speech, pauses);
    const double least_db = least_level(levels_db, result.words, pauses);
    for (const Stretch& gap : long_gaps(smooth_db, result.words, pauses)) {
        find_hidden_words(gap, levels_db, smooth_db, speech, least_db, result.words);
    }
    const std::vector<Stretch> units = units_of(result.words, smooth_db);
    const std::vector<Sums> sums = sums_of(units, levels_db, result.words);
    const std::vector<std::size_t> starts = cheapest_partition(sums, units);
    for (std::size_t i = 0; i < starts.size(); ++i) {
        const std::size_t end = i + 1 < starts.size() ? starts[i + 1] : units.size();
        const Stretch bins{units[starts[i]].begin, units[end - 1].end};
        const std::vector<Stretch> own(units.begin() + static_cast<std::ptrdiff_t>(starts[i]),
                                       units.begin() + static_cast<std::ptrdiff_t>(end));
        std::vector<Stretch> turns;
        cut_at_turns(bins, own, levels_db, result.words, turns);
        for (const Stretch& turn : turns) {
            result.phrases.push_back({turn, speech_level(levels_db, result.words, turn)});
        }
    }
    begin_in_gaps(result.phrases, smooth_db);
    return result;
}

}  // namespace quorvane
