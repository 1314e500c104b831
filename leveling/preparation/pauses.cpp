#include "leveling/preparation/pauses.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

constexpr long long kHalfWindow = 10;  // bins: half a second to each side
constexpr std::size_t kWindow = 2 * kHalfWindow + 1;
constexpr std::size_t kHighRank = 18;  // of 21 sorted values: the 90th percentile
constexpr std::size_t kLowRank = 4;    // the 20th
constexpr double kLeastSpan_db = 6;
// Who speaks without a breath still stops between words: one bin in ten falls far under the others,
// which noise never does.
constexpr std::size_t kLowestRank = 1;
constexpr std::size_t kMiddleRank = 10;
constexpr double kLeastDip_db = 8;
constexpr double kFloor_db = -120;  // what is below is silence, however far

// A pause of three seconds, less the half second at each end that is near speech.
constexpr long long kShortestQuiet = 40;  // bins
constexpr double kUnderSpeech_db = 6;
constexpr double kFarUnderSpeech_db = 14;  // what moves like a voice
constexpr double kMoves_db = 1.5;          // from bin to bin, on average
constexpr long long kNeighbourhood = 60;   // bins of speech on each side: three seconds
constexpr double kRelativeGate = 0.1;      // 10 dB

bool is_speech(const std::vector<float>& levels_db, long long bin) {
    std::array<float, kWindow> window{};
    const auto last = static_cast<long long>(levels_db.size()) - 1;
    for (long long i = -kHalfWindow; i <= kHalfWindow; ++i) {
        const auto at = static_cast<std::size_t>(std::clamp(bin + i, 0LL, last));
        window[static_cast<std::size_t>(i + kHalfWindow)] =
            std::max(levels_db[at], static_cast<float>(kFloor_db));
    }
    std::sort(window.begin(), window.end());
    const auto span = [&window](std::size_t low, std::size_t high) {
        return static_cast<double>(window[high]) - static_cast<double>(window[low]);
    };
    return span(kLowRank, kHighRank) >= kLeastSpan_db ||
           span(kLowestRank, kMiddleRank) >= kLeastDip_db;
}

double power_at(const std::vector<float>& levels_db, long long bin) {
    return power_of_level(static_cast<double>(levels_db[static_cast<std::size_t>(bin)]));
}

/** The bins from `begin` on, in steps of 1 or -1, until enough of them have speech. */
Stretch neighbourhood(const std::vector<bool>& speech, long long begin, long long step) {
    const auto count = static_cast<long long>(speech.size());
    long long found = 0;
    long long at = begin;
    while (at >= 0 && at < count && found < kNeighbourhood) {
        found += speech[static_cast<std::size_t>(at)] ? 1 : 0;
        at += step;
    }
    return step > 0 ? Stretch{begin, at} : Stretch{at + 1, begin + 1};
}

/** The power of each bin of a range that has speech, 0 in the others. */
std::vector<double> speech_powers(const std::vector<float>& levels_db,
                                  const std::vector<bool>& speech,
                                  Stretch range) {
    std::vector<double> powers(static_cast<std::size_t>(range.length()), 0.0);
    for (long long i = range.begin; i < range.end; ++i) {
        if (speech[static_cast<std::size_t>(i)]) {
            powers[static_cast<std::size_t>(i - range.begin)] = power_at(levels_db, i);
        }
    }
    return powers;
}

/** Which bins of a range have speech that is not far under the mean of it. */
std::vector<bool> loud_ones(const std::vector<float>& levels_db,
                            const std::vector<bool>& speech,
                            const std::vector<double>& powers,
                            Stretch range) {
    double sum = 0;
    double count = 0;
    for (long long i = range.begin; i < range.end; ++i) {
        if (speech[static_cast<std::size_t>(i)]) {
            sum += powers[static_cast<std::size_t>(i - range.begin)];
            ++count;
        }
    }
    std::vector<bool> loud(powers.size());
    const double gate_db = count > 0 ? level_of_power(kRelativeGate * sum / count) : 0;
    for (long long i = range.begin; i < range.end; ++i) {
        const auto at = static_cast<std::size_t>(i);
        loud[static_cast<std::size_t>(i - range.begin)] =
            speech[at] && static_cast<double>(levels_db[at]) > gate_db;
    }
    return loud;
}

double mean_level(const std::vector<float>& levels_db, Stretch range) {
    double sum = 0;
    for (long long i = range.begin; i < range.end; ++i) {
        sum += power_at(levels_db, i);
    }
    return level_of_power(sum / static_cast<double>(range.length()));
}

/** Whether a quiet stretch is as quiet as a pause beside the speech on both sides. */
bool is_under_speech(const std::vector<float>& levels_db,
                     const std::vector<bool>& speech,
                     Stretch quiet) {
    const double before =
        speech_level(levels_db, speech, neighbourhood(speech, quiet.begin - 1, -1));
    const double after = speech_level(levels_db, speech, neighbourhood(speech, quiet.end, 1));
    // Beside the quieter of two voices, where there are two.
    const double beside =
        std::min(before, after) > kSilence_db ? std::min(before, after) : std::max(before, after);
    const double under =
        moves_like_a_voice(levels_db, quiet) ? kFarUnderSpeech_db : kUnderSpeech_db;
    return beside > kSilence_db && mean_level(levels_db, quiet) <= beside - under;
}

}  // namespace

std::vector<bool> find_speech(const std::vector<float>& levels_db) {
    std::vector<bool> speech(levels_db.size());
    for (std::size_t i = 0; i < levels_db.size(); ++i) {
        speech[i] = is_speech(levels_db, static_cast<long long>(i));
    }
    return speech;
}

bool moves_like_a_voice(const std::vector<float>& levels_db, Stretch range) {
    double sum = 0;
    for (long long i = range.begin + 1; i < range.end; ++i) {
        const auto at = static_cast<std::size_t>(i);
        sum +=
            std::fabs(static_cast<double>(levels_db[at]) - static_cast<double>(levels_db[at - 1]));
    }
    return sum > kMoves_db * static_cast<double>(range.length() - 1);
}

std::vector<bool> loud_speech(const std::vector<float>& levels_db,
                              const std::vector<bool>& speech,
                              Stretch range) {
    return loud_ones(levels_db, speech, speech_powers(levels_db, speech, range), range);
}

double speech_level(const std::vector<float>& levels_db,
                    const std::vector<bool>& speech,
                    Stretch range) {
    const std::vector<double> powers = speech_powers(levels_db, speech, range);
    const std::vector<bool> loud = loud_ones(levels_db, speech, powers, range);
    double sum = 0;
    double count = 0;
    for (std::size_t i = 0; i < loud.size(); ++i) {
        if (loud[i]) {
            sum += powers[i];
            ++count;
        }
    }
    return count > 0 ? level_of_power(sum / count) : kSilence_db;
}

std::vector<Stretch> find_pauses(const BinLevels& levels, const std::vector<bool>& speech) {
    std::vector<Stretch> pauses;
    const long long count = levels.count();
    for (long long i = 0; i < count;) {
        Stretch quiet{i, i};
        while (quiet.end < count && !speech[static_cast<std::size_t>(quiet.end)]) {
            ++quiet.end;
        }
        if (quiet.length() >= kShortestQuiet && is_under_speech(levels.speech_db, speech, quiet)) {
            pauses.push_back(quiet);
        }
        i = std::max(quiet.end, i + 1);
    }
    return pauses;
}

std::vector<float> without_pauses(const std::vector<float>& levels_db,
                                  const std::vector<Stretch>& pauses) {
    std::vector<float> result;
    long long from = 0;
    for (const Stretch& pause : pauses) {
        result.insert(result.end(), levels_db.begin() + from, levels_db.begin() + pause.begin);
        from = pause.end;
    }
    result.insert(result.end(), levels_db.begin() + from, levels_db.end());
    return result;
}

}  // namespace quorvane
