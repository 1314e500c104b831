#include "library/run/results.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "leveling/advice/finding_words.h"
#include "leveling/publish/verdict.h"

namespace quorvane {
namespace {

constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
constexpr double kSilence = -std::numeric_limits<double>::infinity();

/** The mean power of the passages, each as long as it is, as a level. */
double speech_level(const SpeechLevels& speech, double SpeechPassage::*level) {
    double power = 0;
    double seconds = 0;
    for (const SpeechPassage& passage : speech.passages) {
        const double length = passage.to_s - passage.from_s;
        power += length * std::pow(10, passage.*level / 10);
        seconds += length;
    }
    return power > 0 ? 10 * std::log10(power / seconds) : kSilence;
}

double greatest(const Curve& curve) {
    return curve.values.empty() ? kSilence
                                : *std::max_element(curve.values.begin(), curve.values.end());
}

bool is_measured(const FileFacts& facts) {
    return facts.before || facts.after;
}

}  // namespace

Results results_of(FileFacts facts, quorvane_outcome outcome, const Settings& settings) {
    Results results;
    results.outcome = outcome;
    if (is_measured(facts) && (facts.speech || facts.conversation)) {
        results.verdict = verdict(facts, settings.targets(), Face::Page);
    }
    results.json = dump(facts_document(facts, settings.targets()));
    for (const Finding& finding : facts.findings) {
        results.sentences.push_back(sentence_of(finding));
        std::vector<double> places;
        for (const FindingPlace& place : finding.places) {
            places.push_back(place.from_s);
            places.push_back(place.to_s);
        }
        results.places.push_back(std::move(places));
    }
    results.facts = std::move(facts);
    return results;
}

std::optional<quorvane_loudness> loudness_of(const FileFacts& facts, quorvane_moment moment) {
    const std::optional<Loudness>& found = moment == QUORVANE_BEFORE ? facts.before : facts.after;
    if (!found) {
        return std::nullopt;
    }
    quorvane_loudness loudness{};
    loudness.integrated_lufs = found->integrated_lufs;
    loudness.short_term_lufs = greatest(found->short_term_lufs);
    loudness.momentary_lufs = found->greatest_momentary_lufs;
    loudness.range_lu = found->range_lu;
    loudness.true_peak_dbtp = found->true_peak_dbtp;
    loudness.sample_peak_dbfs = found->sample_peak_dbfs;
    loudness.rms_dbfs = found->rms_dbfs;
    loudness.speech_lufs = loudness.speech_passages_db = kUnknown;
    if (facts.speech && facts.speech->state == SpeechState::Measured) {
        const bool before = moment == QUORVANE_BEFORE;
        loudness.speech_lufs = speech_level(
            *facts.speech, before ? &SpeechPassage::before_db : &SpeechPassage::after_db);
        loudness.speech_passages_db =
            before ? facts.speech->span_before_db : facts.speech->span_after_db;
    }
    return loudness;
}

}  // namespace quorvane
