#include "leveling/report/heard.h"

#include <algorithm>
#include <cmath>
#include <limits>

/*
 * From what the engine did to what a listener notices. The segmentation cuts finer than anybody
 * hears: neighbours with nearly the same gain become one passage, and so does a short one with the
 * neighbour whose gain is nearer. The gain of the last step, the same for the whole recording, is
 * found by comparing before and after, and added, so that the passages show what they got in all.
 */

namespace quorvane {
namespace {

constexpr double kUnheardDb = 1.0;        // between two gains
constexpr double kShortestSeconds = 1.5;  // about a short sentence
constexpr double kQuietestSpeech = -50;   // LUFS; below it a change is that of noise

double seconds(const Passage& passage) {
    return passage.to_s - passage.from_s;
}

/** Both as one: their gains weighted by time, their levels by time as power. */
Passage joined(const Passage& first, const Passage& second) {
    Passage both{first.from_s, second.to_s, -std::numeric_limits<double>::infinity(), 0};
    double power = 0;
    double loud_s = 0;
    for (const Passage* passage : {&first, &second}) {
        both.gain_db += passage->gain_db * seconds(*passage) / seconds(both);
        if (std::isfinite(passage->level_db)) {
            power += seconds(*passage) * std::pow(10, passage->level_db / 10);
            loud_s += seconds(*passage);
        }
    }
    if (loud_s > 0) {
        both.level_db = 10 * std::log10(power / loud_s);
    }
    return both;
}

/** From the front: what was joined is compared with what lies before it, too. */
void join_alike(std::vector<Passage>& passages) {
    std::vector<Passage> result;
    for (const Passage& passage : passages) {
        result.push_back(passage);
        while (result.size() > 1 &&
               std::fabs(result.back().gain_db - result[result.size() - 2].gain_db) <= kUnheardDb) {
            const Passage last = result.back();
            result.pop_back();
            result.back() = joined(result.back(), last);
        }
    }
    passages = result;
}

/** Each short passage goes to the neighbour whose gain is nearer, until none is left. */
void join_short(std::vector<Passage>& passages) {
    for (std::size_t i = 0; i < passages.size() && passages.size() > 1;) {
        if (seconds(passages[i]) >= kShortestSeconds) {
            ++i;
            continue;
        }
        const auto distance = [&](std::size_t other) {
            return std::fabs(passages[i].gain_db - passages[other].gain_db);
        };
        const bool with_next =
            i == 0 || (i + 1 < passages.size() && distance(i + 1) < distance(i - 1));
        const std::size_t first = with_next ? i : i - 1;
        passages[first] = joined(passages[first], passages[first + 1]);
        passages.erase(passages.begin() + static_cast<std::ptrdiff_t>(first) + 1);
        // What came of it may still be short.
        i = first;
    }
}

/** The mean power of a curve of levels over a passage, as a level. */
double mean_lufs(const Curve& curve, const Passage& passage) {
    double sum = 0;
    double count = 0;
    for (std::size_t i = 0; i < curve.values.size(); ++i) {
        const double at = static_cast<double>(i) * curve.step_s;
        if (at >= passage.from_s && at < passage.to_s && std::isfinite(curve.values[i])) {
            sum += std::pow(10, curve.values[i] / 10);
            ++count;
        }
    }
    return count > 0 ? 10 * std::log10(sum / count) : -std::numeric_limits<double>::infinity();
}

/** Empty where not all of them are known. */
std::vector<ShownPassage> passages_of_speech(const FileFacts& facts) {
    std::vector<ShownPassage> shown;
    if (!facts.speech || facts.speech->passages.size() !=
                             static_cast<std::size_t>(std::max(facts.speech->count, 0))) {
        return shown;
    }
    for (const SpeechPassage& passage : facts.speech->passages) {
        if (std::isfinite(passage.before_db) && std::isfinite(passage.after_db)) {
            shown.push_back({passage.from_s, passage.to_s, passage.before_db, passage.after_db,
                             passage.after_db - passage.before_db, 0});
        }
    }
    return shown;
}

}  // namespace

double final_level_db(const FileFacts& facts) {
    if (!facts.leveling || !facts.before || !facts.after ||
        facts.leveling->gain_db.values.empty()) {
        return 0;
    }
    const Curve& before = facts.before->short_term_lufs;
    const Curve& after = facts.after->short_term_lufs;
    const Curve& gain = facts.leveling->gain_db;
    // What each moment got besides the leveling gain. The median does not mind those where the gate
    // or a limited peak took part.
    std::vector<double> added;
    for (std::size_t i = 0; i < std::min(before.values.size(), after.values.size()); ++i) {
        const double at = static_cast<double>(i) * before.step_s / gain.step_s;
        const double level =
            gain.values[std::min(gain.values.size() - 1, static_cast<std::size_t>(at))];
        if (before.values[i] > kQuietestSpeech && std::isfinite(after.values[i]) &&
            std::isfinite(level)) {
            added.push_back(after.values[i] - before.values[i] - level);
        }
    }
    if (added.empty()) {
        return 0;
    }
    const auto middle = added.begin() + static_cast<std::ptrdiff_t>(added.size() / 2);
    std::nth_element(added.begin(), middle, added.end());
    return *middle;
}

std::vector<Passage> heard_passages(const FileFacts& facts) {
    if (!facts.leveling) {
        return {};
    }
    std::vector<Passage> passages = facts.leveling->passages;
    const double final_level = final_level_db(facts);
    for (Passage& passage : passages) {
        passage.gain_db += final_level;
    }
    join_alike(passages);
    join_short(passages);
    join_alike(passages);  // joining the short ones may have brought like ones together
    return passages;
}

std::vector<ShownPassage> shown_passages(const FileFacts& facts) {
    if (!facts.leveling || !facts.before || !facts.after) {
        return {};
    }
    std::vector<ShownPassage> shown = passages_of_speech(facts);
    if (shown.empty()) {
        for (const Passage& passage : heard_passages(facts)) {
            shown.push_back({passage.from_s, passage.to_s,
                             mean_lufs(facts.before->short_term_lufs, passage),
                             mean_lufs(facts.after->short_term_lufs, passage), passage.gain_db, 0});
        }
    }
    double sum = 0;
    double time = 0;
    for (const ShownPassage& passage : shown) {
        sum += passage.gain_db * (passage.to_s - passage.from_s);
        time += passage.to_s - passage.from_s;
    }
    for (ShownPassage& passage : shown) {
        passage.against_db = time > 0 ? passage.gain_db - sum / time : 0;
    }
    return shown;
}

double most_different_s(const FileFacts& facts, double seconds) {
    if (!facts.leveling || facts.leveling->gain_db.step_s <= 0) {
        return 0;
    }
    const Curve& gain = facts.leveling->gain_db;
    // Where the gain varies most, the voices differ most: that stretch shows what leveling does.
    const auto window = static_cast<std::size_t>(seconds / gain.step_s);
    // Sums over the first values give the variance of any stretch.
    std::vector<double> sums = {0};
    std::vector<double> squares = {0};
    for (double value : gain.values) {
        const double finite = std::isfinite(value) ? value : 0;
        sums.push_back(sums.back() + finite);
        squares.push_back(squares.back() + finite * finite);
    }
    std::size_t best = 0;
    double greatest = -1;
    for (std::size_t start = 0; window > 0 && start + window < sums.size(); ++start) {
        const auto count = static_cast<double>(window);
        const double mean = (sums[start + window] - sums[start]) / count;
        const double variance = (squares[start + window] - squares[start]) / count - mean * mean;
        if (variance > greatest) {
            greatest = variance;
            best = start;
        }
    }
    return static_cast<double>(best) * gain.step_s;
}

}  // namespace quorvane
