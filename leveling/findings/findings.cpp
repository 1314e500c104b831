#include "leveling/findings/findings.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "leveling/findings/detectors.h"
#include "leveling/findings/source_coding.h"
#include "leveling/findings/speech_passages.h"

/*
 * The limits of all findings. Each lies between the most that three recordings without the fault
 * give, at other levels and rates (8 to 96 kHz), in mono and stereo, and from mp3 and opus, and
 * what the same recordings give with the fault:
 *
 *                 clean      faulty
 *   clipped         0 %      0.29 %, at twice the full range; 13 % at four times
 *   sides         5.4 dB     14 dB lower; 100 dB without one side
 *   out-of-phase  0.5 dB     16 dB, sides opposed but for a tenth; 60 dB opposed
 *   dc-offset     -23 dB     -10 dB at 5 % of full scale under loud speech
 *   hum           -30 dB     -26.7 dB at -43 dBFS under loud speech; -13 dB under soft speech
 *   noise          29 dB     21 dB, 15 dB under the mean power; 16 dB, 10 dB under it
 *   rumble        -17 dB     -9 dB, wind 6 dB under the speech; -3 dB, as loud as it
 *   dropouts        0        all of 6 or 8
 *   spill          14 dB     24 dB, a voice 24 dB lower
 *   music-bed     none       correlation above 0.25, 18 dB under the speech; without 0.09
 *   reverberant  0.26 s      0.7 to 0.86 s of 0.8 s; 1.05 to 1.1 s of 1.2 s
 */

namespace quorvane {
namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();

/** From which badness on a finding is a note, a warning or a problem. */
struct Limits {
    double note = 0;
    double warning = 0;
    double problem = 0;
};

struct Detector {
    const char* code = "";
    Measured (*measure)(const SpeechView&) = nullptr;
    Limits from = {};
    double before = kNever;    // a badness that another code stands for
    double least_words_s = 0;  // with less speech it is not looked for
};

constexpr double kLittleSpeech_s = 3;  // a window of EBU Tech 3342
constexpr double kQuietSide_db = 12;
constexpr double kSilentSide_db = 45;

// What fills the gaps between words cannot be told from their ends where there are few.
constexpr Detector kDetectors[] = {
    {"clipped", measure_clipping, {0.002, 0.01, 0.3}},                               // %
    {"side-silent", measure_sides, {kNever, kNever, kSilentSide_db}},                // dB
    {"side-quiet", measure_sides, {kNever, kQuietSide_db, kNever}, kSilentSide_db},  // dB
    {"out-of-phase", measure_phase, {kNever, 6, 10}},                                // dB lost
    {"dc-offset", measure_offset, {-15, -6, kNever}},                                // dB
    {"hum", measure_hum, {kNever, -27, -12}, kNever, kLittleSpeech_s},               // dB
    {"noise", measure_noise, {kNever, -22, -14}, kNever, kLittleSpeech_s},           // -SNR, dB
    {"rumble", measure_rumble, {kNever, -10, 0}},                                    // dB
    {"long-pauses", measure_pauses, {0.25, 3, kNever}},                              // minutes
    {"dropouts", measure_breaks, {kNever, 2, 10}},                                   // places
    {"spill", measure_spill, {kNever, 22, kNever}},                                  // dB
    {"music-bed", measure_music, {-60, kNever, kNever}},                             // dB
    {"reverberant", measure_reverberation, {kNever, 0.7, 1.2}, kNever, kLittleSpeech_s},  // s
};

// What one fault shows is not reported as another one: music, hum and reverberation fill the
// gaps between words as noise does.
constexpr std::pair<const char*, const char*> kInstead[] = {
    {"music-bed", "noise"}, {"reverberant", "noise"}, {"hum", "noise"}, {"hum", "music-bed"}};

constexpr double kShortest_s = 0.4;  // a block of ITU-R BS.1770
constexpr double kRaisedFrom_db = 15;
constexpr double kRaisedFar_db = 30;

bool has(const std::vector<Finding>& findings, const std::string& code) {
    return std::any_of(findings.begin(), findings.end(),
                       [&](const Finding& finding) { return finding.code == code; });
}

void add_measured(const SpeechView& view, std::vector<Finding>& findings) {
    for (const Detector& detector : kDetectors) {
        if (view.words_s < detector.least_words_s) {
            continue;
        }
        const Measured found = detector.measure(view);
        const Limits& from = detector.from;
        if (found.badness < std::min({from.note, from.warning, from.problem}) ||
            found.badness >= detector.before) {
            continue;
        }
        const Severity severity = found.badness >= from.problem   ? Severity::Problem
                                  : found.badness >= from.warning ? Severity::Warning
                                                                  : Severity::Note;
        findings.push_back(
            {detector.code, severity, found.value, found.unit, found.places, found.detail});
    }
    for (const auto& [cause, effect] : kInstead) {
        if (has(findings, cause)) {
            const auto is_effect = [name = effect](const Finding& finding) {
                return finding.code == name;
            };
            findings.erase(std::remove_if(findings.begin(), findings.end(), is_effect),
                           findings.end());
        }
    }
}

/**
 * What the other speakers do to a track of a conversation: their voices on it and the time in which
 * only they speak. They are leveled for all tracks together.
 */
constexpr const char* kOfOthers[] = {"spill",       "long-pauses", "noise",
                                     "reverberant", "music-bed",   "short"};

void keep_findings_of_track(FileFacts& facts) {
    const auto is_of_others = [](const Finding& finding) {
        return std::any_of(std::begin(kOfOthers), std::end(kOfOthers),
                           [&](const char* code) { return finding.code == code; });
    };
    facts.findings.erase(std::remove_if(facts.findings.begin(), facts.findings.end(), is_of_others),
                         facts.findings.end());
    // The passages of all who are heard say nothing of its owner.
    facts.speech.reset();
}

}  // namespace

void add_findings(const SoundProfile& profile, FileFacts& facts) {
    SpeechLevels speech;
    const double seconds =
        static_cast<double>(profile.frames) / std::max(profile.sample_rate_hz, 1);
    const SpeechView view(profile);
    if (seconds < kShortest_s) {
        speech.state = SpeechState::TooShort;
        facts.findings.push_back({"short", Severity::Problem, seconds, "s", {}, "recording"});
    } else if (view.has_speech()) {
        speech.state = SpeechState::Measured;
        speech.speech_s = view.words_s;
        for (const Phrase& phrase : view.phrases.phrases) {
            const FindingPlace place = view.place_of(phrase.bins);
            speech.passages.push_back({place.from_s, place.to_s, 0, 0});
        }
        add_measured(view, facts.findings);
        if (view.words_s < kLittleSpeech_s) {
            facts.findings.push_back({"short", Severity::Warning, view.words_s, "s", {}, "speech"});
        }
    }
    facts.speech = speech;
}

void add_results(std::int64_t input_bytes, FileFacts& facts) {
    if (facts.is_track()) {
        keep_findings_of_track(facts);
    }
    if (facts.speech) {
        add_speech_levels(facts.before, facts.after, *facts.speech);
    }
    if (facts.before && facts.after && facts.outcome == Outcome::Leveled) {
        const double raised_db = facts.after->integrated_lufs - facts.before->integrated_lufs;
        if (raised_db >= kRaisedFrom_db && raised_db < kNever) {
            const Severity severity =
                raised_db >= kRaisedFar_db ? Severity::Warning : Severity::Note;
            facts.findings.push_back({"raised", severity, raised_db, "dB", {}, ""});
        }
    }
    add_source_coding(input_bytes, facts);
    for (auto* loudness : {&facts.before, &facts.after}) {
        if (*loudness) {
            (*loudness)->powers = {};
        }
    }
    std::stable_sort(
        facts.findings.begin(), facts.findings.end(),
        [](const Finding& one, const Finding& other) { return one.severity < other.severity; });
}

}  // namespace quorvane
