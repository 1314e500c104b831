#include "leveling/preparation/evenness.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "leveling/audio/portable_math.h"
#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

constexpr std::size_t kNeighbourhood = 60;  // bins with speech: three seconds
// Points of a gain curve in the facts; longer ones are thinned out.
constexpr std::size_t kMostPoints = 1200;
// Two measures of unevenness that are this close count as equal.
constexpr double kAsEven_db = 0.1;
constexpr double kMostUneven_db = 3.5;  // levels further apart are not a single voice
constexpr double kEvenSpan_db = 2;      // of the phrases
constexpr long long kSecond = 20;       // bins
// Recordings shorter than this, in bins, are compared by seconds and not by stretches.
constexpr long long kShort = 4 * kStretch;
constexpr float kLoud_db = 12;  // under the loudest of them
// A bin without speech, or in a pause: it has no gain.
constexpr float kNone = std::numeric_limits<float>::quiet_NaN();

}  // namespace

SpeechGains::SpeechGains(const std::vector<float>& before_db,
                         const std::vector<float>& after_db,
                         const std::vector<bool>& speech,
                         const std::vector<Stretch>& pauses)
    : before_db_(before_db), gains_(before_db.size(), kNone) {
    const std::vector<bool> loud =
        loud_speech(before_db, speech, {0, static_cast<long long>(before_db.size())});
    // The copy lacks the pauses, so its bins have a count of their own.
    std::size_t in_copy = 0;
    std::size_t pause = 0;
    double sum = 0;
    double count = 0;
    for (std::size_t i = 0; i < before_db.size(); ++i) {
        while (pause < pauses.size() && static_cast<long long>(i) >= pauses[pause].end) {
            ++pause;
        }
        if (pause < pauses.size() && static_cast<long long>(i) >= pauses[pause].begin) {
            continue;
        }
        if (speech[i] && in_copy < after_db.size()) {
            gains_[i] = after_db[in_copy] - before_db[i];
            sum += loud[i] ? static_cast<double>(gains_[i]) : 0;
            count += loud[i] ? 1 : 0;
        }
        ++in_copy;
    }
    mean_ = count > 0 ? sum / count : 0;
}

/** The median gain of the louder ones of the next bins with speech. */
double SpeechGains::near_by(long long from, long long step) const {
    std::vector<std::size_t> bins;
    const auto count = static_cast<long long>(gains_.size());
    float loudest_db = static_cast<float>(kSilence_db);
    for (long long i = from; i >= 0 && i < count && bins.size() < kNeighbourhood; i += step) {
        const auto at = static_cast<std::size_t>(i);
        if (!std::isnan(gains_[at])) {
            bins.push_back(at);
            loudest_db = std::max(loudest_db, before_db_[at]);
        }
    }
    // Soft bins are mostly background, and say little about the gain of the voice.
    std::vector<float> found;
    for (const std::size_t bin : bins) {
        if (before_db_[bin] >= loudest_db - kLoud_db) {
            found.push_back(gains_[bin]);
        }
    }
    if (found.empty()) {
        // No speech on this side, so that the other one decides.
        return std::numeric_limits<double>::infinity();
    }
    const auto middle = found.begin() + static_cast<std::ptrdiff_t>(found.size() / 2);
    std::nth_element(found.begin(), middle, found.end());
    return static_cast<double>(*middle);
}

double SpeechGains::beside(const Stretch& pause) const {
    return std::min(near_by(pause.begin - 1, -1), near_by(pause.end, 1));
}

double background_under(const Phrases& phrases,
                        const std::vector<float>& levels_db,
                        const std::vector<Stretch>& pauses) {
    std::vector<float> levels = without_pauses(levels_db, pauses);
    // A tenth of all bins lies below it: the level of the background.
    const auto tenth = levels.begin() + static_cast<std::ptrdiff_t>(levels.size() / 10);
    std::nth_element(levels.begin(), tenth, levels.end());
    double quietest_db = phrases.phrases.front().level_db;
    for (const Phrase& phrase : phrases.phrases) {
        quietest_db = std::min(quietest_db, phrase.level_db);
    }
    return quietest_db - static_cast<double>(*tenth);
}

double unevenness(const std::vector<float>& levels_db, long long stretch) {
    const std::vector<bool> all(levels_db.size(), true);
    double sum = 0;
    double squares = 0;
    double count = 0;
    const auto bins = static_cast<long long>(levels_db.size());
    for (long long begin = 0; begin + stretch <= bins; begin += stretch) {
        const double level = speech_level(levels_db, all, {begin, begin + stretch});
        sum += level;
        squares += level * level;
        ++count;
    }
    const double mean = count > 0 ? sum / count : 0;
    // Rounding may bring the variance just below 0.
    return count > 1 ? std::sqrt(std::max(0.0, squares / count - mean * mean)) : 0;
}

bool is_even(const std::vector<float>& before_db,
             const std::vector<float>& phrased_db,
             const Phrases& phrases) {
    const bool is_short = static_cast<long long>(before_db.size()) < kShort;
    const long long stretch = is_short ? kSecond : kStretch;
    const double uneven_db = unevenness(before_db, stretch);
    const bool is_as_even =
        phrases.phrases.size() == 1 || uneven_db <= unevenness(phrased_db, stretch) + kAsEven_db;
    const auto [least, most] = std::minmax_element(
        phrases.phrases.begin(), phrases.phrases.end(),
        [](const Phrase& a, const Phrase& b) { return a.level_db < b.level_db; });
    return is_as_even && uneven_db < kMostUneven_db &&
           most->level_db - least->level_db < kEvenSpan_db;
}

std::vector<double> pause_gains(const SpeechGains& gains,
                                const std::vector<float>& peaks,
                                const std::vector<Stretch>& pauses,
                                double ceiling_db) {
    std::vector<double> result;
    for (const Stretch& pause : pauses) {
        // Never more than the speech gets on average: noise alone must not come up.
        const double gain_db = std::min(gains.beside(pause), gains.mean());
        const float peak =
            *std::max_element(peaks.begin() + pause.begin, peaks.begin() + pause.end);
        // What the pause's peak leaves up to the ceiling.
        const double room_db = ceiling_db - level_of_amplitude(static_cast<double>(peak));
        result.push_back(quorvane::portable_amplitude(std::min(gain_db, room_db)));
    }
    return result;
}

quorvane::Leveling leveling_of_phrases(const Phrases& phrases, const std::vector<float>& curve_db) {
    double sum = 0;
    double count = 0;
    for (std::size_t i = 0; i < curve_db.size(); ++i) {
        sum += phrases.words[i] ? static_cast<double>(curve_db[i]) : 0;
        count += phrases.words[i] ? 1 : 0;
    }
    // Passages and curve are given against the mean gain of all words.
    const double mean = count > 0 ? sum / count : 0;
    quorvane::Leveling leveling;
    for (const Phrase& phrase : phrases.phrases) {
        const auto middle = static_cast<std::size_t>((phrase.bins.begin + phrase.bins.end) / 2);
        leveling.passages.push_back({static_cast<double>(phrase.bins.begin) * kBin_s,
                                     static_cast<double>(phrase.bins.end) * kBin_s, phrase.level_db,
                                     static_cast<double>(curve_db[middle]) - mean});
    }
    // Rounded up, so that there are at most kMostPoints.
    const std::size_t step = (curve_db.size() + kMostPoints - 1) / kMostPoints;
    leveling.gain_db.step_s = kBin_s * static_cast<double>(step);
    for (std::size_t i = 0; i < curve_db.size(); i += step) {
        leveling.gain_db.values.push_back(static_cast<double>(curve_db[i]) - mean);
    }
    const auto [least, most] =
        std::minmax_element(leveling.gain_db.values.begin(), leveling.gain_db.values.end());
    leveling.least_gain_db = *least;
    leveling.greatest_gain_db = *most;
    return leveling;
}

void move_to_recording(quorvane::Leveling& leveling, const Timeline& timeline, int sample_rate_hz) {
    const double rate = sample_rate_hz;
    const auto moved = [&](double time_s) { return timeline.in_recording(time_s * rate) / rate; };
    for (quorvane::Passage& passage : leveling.passages) {
        passage.from_s = moved(passage.from_s);
        passage.to_s = moved(passage.to_s);
    }
    quorvane::Curve& curve = leveling.gain_db;
    if (curve.values.empty()) {
        return;
    }
    // As many points over a longer time: each has the value of the copy's last point before it.
    const auto points = static_cast<double>(curve.values.size());
    quorvane::Curve longer{static_cast<double>(timeline.frames()) / rate / points, {}};
    std::size_t at = 0;
    for (std::size_t i = 0; i < curve.values.size(); ++i) {
        const double time_s = static_cast<double>(i) * longer.step_s;
        while (at + 1 < curve.values.size() &&
               moved(static_cast<double>(at + 1) * curve.step_s) <= time_s) {
            ++at;
        }
        longer.values.push_back(curve.values[at]);
    }
    curve = longer;
}

}  // namespace quorvane
