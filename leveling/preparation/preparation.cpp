#include "leveling/preparation/preparation.h"

#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "Common/level.h"
#include "Common/stream/pump.h"
#include "Common/units.h"
#include "leveling/audio/portable_math.h"
#include "leveling/engine/engine_run.h"
#include "leveling/engine/output_gate.h"
#include "leveling/preparation/bin_levels.h"
#include "leveling/preparation/engine_copy.h"
#include "leveling/preparation/evenness.h"
#include "leveling/preparation/gain_curve.h"
#include "leveling/preparation/levels.h"
#include "leveling/preparation/limited_rendering.h"
#include "leveling/preparation/pauses.h"
#include "leveling/preparation/phrases.h"
#include "leveling/preparation/rendering.h"
#include "leveling/preparation/rumble.h"
#include "leveling/preparation/sound_files.h"
#include "leveling/preparation/timeline.h"
#include "leveling/publish/true_peak.h"

namespace quorvane {
namespace {

// Below full scale, for what the engine's high-pass adds to a peak before it clips.
constexpr double kPeak_db = -3;
constexpr double kNoiseRaise_db = 30;  // what has to be raised so far and holds no speech is noise
// Reverberation fills the gaps, so that turns differ by less than the engine's tolerance of 3.5.
constexpr const char* kTolerance = "--segment-tolerance=2.5";
// The engine's ceiling and target.
constexpr double kCeiling_db = -1;
constexpr double kTarget_db = -18;
constexpr double kWordsAboveTarget_db = 1.2;  // without the gaps that the target counts
constexpr int kLevelRounds = 3;               // peaks that are held take loudness away
// How a recording is judged that has been leveled.
constexpr double kEvenEnough_db = 1.5;  // what one voice does by itself
constexpr long kLeastWords = 40;        // bins; fewer do not give a reliable level
// The engine also evens out what one speaker says louder and softer, which is not a fault.
constexpr double kNatural_db = 1.0;
constexpr double kShortOfTarget_db = 1;  // what its peaks may keep from the level of others

// Where the stages end on the progress bar.
constexpr double kAnalysed = 0.08;
constexpr double kCopied = 0.18;
constexpr double kEngineDone = 0.90;

/** The part of the progress bar that a stage has. */
std::function<void(double)> part_of(const std::function<void(double)>& progress,
                                    double from,
                                    double to) {
    return [&progress, from, to](double done) { progress(from + (to - from) * done); };
}

BinLevels levels_of(const std::string& path,
                    const std::vector<Section>& high_pass_sections,
                    PeakOf peak_of) {
    InputFile file(path);
    LevelAnalyser analyser(file.info().channels, file.info().samplerate, high_pass_sections,
                           peak_of);
    stream::pump(file.source(), analyser, stream::kToTheEnd);
    return std::move(analyser.levels());
}

/** Whether the user tunes the engine, which then makes the curve. The bit depth is not tuning. */
bool sets_engine(const std::vector<std::string>& tuning) {
    return std::any_of(tuning.begin(), tuning.end(),
                       [](const std::string& word) { return word.rfind("--bit-depth", 0) != 0; });
}

/** An options file may set it too; what it holds is the engine's to read. */
bool sets_tolerance(const std::vector<std::string>& tuning) {
    return std::any_of(tuning.begin(), tuning.end(), [](const std::string& word) {
        return word.rfind("--segment-tolerance", 0) == 0 || word.rfind("--options-file", 0) == 0;
    });
}

/** One recording on its way. */
class PreparationRun {
  public:
    PreparationRun(const PreparedRun& run, const std::function<void(double)>& progress)
        : run_(run), progress_(progress) {}

    PreparedResult go();

  private:
    void analyse();

    Stretch all_bins() const { return {0, levels_.count()}; }

    bool is_noise() const;
    void choose_high_pass();
    void write_copy();
    bool run_the_engine();
    void judge();
    bool has_enough_words() const;
    void judge_evenness(double one_gain_db);
    bool needs_no_engine();
    std::vector<float> phrased() const;
    double level_with(const std::vector<float>& gain_db) const;
    int output_format() const;
    OutputFile open_output();
    void put_together();
    void render_engine(OutputFile& out, const std::function<void(double)>& progress) const;
    void tell_of_pauses();

    const PreparedRun& run_;
    const std::function<void(double)>& progress_;
    PreparedResult result_;
    Preparation facts_;
    SF_INFO info_{};
    long long bin_frames_ = 0;
    BinLevels levels_;
    std::vector<bool> speech_;
    std::vector<Stretch> pauses_;  // in bins
    double peak_ = 0;
    double gain_ = 1;
    std::vector<Section> steep_;
    std::vector<Section> high_pass_;  // all that takes rumble out
    BinLevels after_;                 // of the copy, as the engine made it
    enum class Way { kEngine, kPhrases, kOneGain } way_ = Way::kEngine;
    Phrases phrases_;
    std::vector<float> curve_db_;
    double one_gain_db_ = 0;
    std::optional<Timeline> timeline_;
    std::string copy_;
    std::string leveled_copy_;
};

PreparedResult PreparationRun::go() {
    analyse();
    if (is_noise()) {
        result_.cause = "nothing in it stands out of its background noise";
        return result_;
    }
    choose_high_pass();
    if (needs_no_engine()) {
        result_.leveled = true;
    } else {
        write_copy();
        if (!run_the_engine()) {
            return result_;
        }
        judge();
    }
    put_together();
    result_.preparation = facts_;
    return result_;
}

void PreparationRun::analyse() {
    InputFile file(run_.recording);
    info_ = file.info();
    if (info_.channels > kMostChannels) {
        throw std::runtime_error("it has " + std::to_string(info_.channels) +
                                 " channels, at most 2 can be leveled");
    }
    high_pass_ = {gentle_high_pass(info_.samplerate)};
    LevelAnalyser analyser(info_.channels, info_.samplerate, high_pass_, PeakOf::kSamples);
    stream::pump(file.source(), analyser, stream::kToTheEnd);
    bin_frames_ = analyser.bin_frames();
    peak_ = analyser.peak();
    levels_ = std::move(analyser.levels());
    speech_ = find_speech(levels_.speech_db);
    if (analyser.is_constant()) {
        // A filter's answer to its first sample is not speech.
        speech_.assign(speech_.size(), false);
    }
    pauses_ = find_pauses(levels_, speech_);
    timeline_.emplace(info_.frames, in_frames(pauses_, bin_frames_, info_.frames));
    facts_.raised_db = peak_ > 0 ? kPeak_db - level_of_amplitude(peak_) : 0;
    gain_ = peak_ > 0 ? quorvane::portable_amplitude(facts_.raised_db) : 1;
    progress_(kAnalysed);
}

/** A hiss that was recorded with nothing before the microphone. */
bool PreparationRun::is_noise() const {
    return facts_.raised_db > kNoiseRaise_db &&
           std::none_of(speech_.begin(), speech_.end(), [](bool speech) { return speech; });
}

void PreparationRun::choose_high_pass() {
    steep_ = rumble_filter(levels_, speech_, info_.samplerate);
    if (!steep_.empty()) {
        facts_.steep_high_pass = true;
        high_pass_.insert(high_pass_.begin(), steep_.begin(), steep_.end());
        replace_rumbling_levels(levels_, levels_of(run_.recording, high_pass_, PeakOf::kSamples));
    }
}

void PreparationRun::write_copy() {
    copy_ = run_.scratch + "/prepared.wav";
    write_engine_copy(run_.recording, *timeline_, gain_, steep_, copy_,
                      part_of(progress_, kAnalysed, kCopied));
}

/** False where it finds nothing to level. */
bool PreparationRun::run_the_engine() {
    leveled_copy_ = run_.scratch + "/leveled-copy.wav";
    quorvane::EngineRun engine{copy_, leveled_copy_, run_.scratch, run_.tuning};
    if (!sets_tolerance(run_.tuning)) {
        engine.tuning.emplace_back(kTolerance);
    }
    engine.ramps = quorvane::Ramps::EndAtTarget;
    const quorvane::EngineResult result =
        run_engine(engine, part_of(progress_, kCopied, kEngineDone));
    result_.leveled = result.leveled;
    result_.cause = result.cause;
    result_.note = result.note;
    if (result.leveled) {
        quorvane::require_sound_output(copy_, leveled_copy_);
        result_.leveling = result.leveling;
    }
    return result.leveled;
}

/**
 * Chooses what becomes the output. One gain for each phrase leaves the sound inside a phrase as it
 * is, which the engine's curve does not; so it is taken wherever it is as even. And a recording
 * that is as even as that already gets one gain.
 */
void PreparationRun::judge() {
    after_ = levels_of(leveled_copy_, {}, PeakOf::kWave);
    if (phrases_.phrases.empty() || sets_engine(run_.tuning)) {
        return;
    }
    const Stretch whole{0, static_cast<long long>(after_.weighted_db.size())};
    const double target_db =
        speech_level(after_.weighted_db, std::vector<bool>(after_.weighted_db.size(), true), whole);
    curve_db_ = gain_curve(levels_, phrases_, pauses_, {target_db, kCeiling_db});
    if (has_enough_words() &&
        unevenness(phrased()) <= unevenness(after_.weighted_db) + kNatural_db) {
        way_ = Way::kPhrases;
    }
    judge_evenness(target_db - speech_level(levels_.weighted_db, phrases_.words, all_bins()));
}

bool PreparationRun::has_enough_words() const {
    return std::count(phrases_.words.begin(), phrases_.words.end(), true) >= kLeastWords;
}

/** The levels of the bins outside of pauses as one gain per phrase leaves them. */
std::vector<float> PreparationRun::phrased() const {
    const std::vector<float> before = without_pauses(levels_.weighted_db, pauses_);
    std::vector<float> result =
        without_pauses(limited_curve(levels_.peak, kCeiling_db, curve_db_), pauses_);
    std::transform(before.begin(), before.end(), result.begin(), result.begin(),
                   [](float level_db, float gain_db) { return level_db + gain_db; });
    return result;
}

/**
 * Whether one gain per phrase is so even that the engine could add nothing. Its level is then set
 * on its words: as loud as the engine's target, in the channel where they are louder.
 */
bool PreparationRun::needs_no_engine() {
    phrases_ = find_phrases(levels_.weighted_db, speech_, pauses_);
    if (phrases_.phrases.empty()) {
        return false;
    }
    facts_.background_under_speech_db = background_under(phrases_, levels_.weighted_db, pauses_);
    if (!has_enough_words() || !run_.tuning.empty()) {
        return false;
    }
    constexpr double kWords_db = kTarget_db + kWordsAboveTarget_db;
    double goal_db = kWords_db;
    for (int round = 0; round < kLevelRounds; ++round) {
        curve_db_ = gain_curve(levels_, phrases_, pauses_, {goal_db, kCeiling_db});
        goal_db += kWords_db - level_with(limited_curve(levels_.peak, kCeiling_db, curve_db_));
    }
    curve_db_ = gain_curve(levels_, phrases_, pauses_, {goal_db, kCeiling_db});
    if (unevenness(phrased()) > kEvenEnough_db) {
        return false;
    }
    way_ = Way::kPhrases;
    judge_evenness(kWords_db - level_with(std::vector<float>(curve_db_.size(), 0.0F)));
    return true;
}

/** The level of the words behind a gain, of the louder channel of each bin, dB. */
double PreparationRun::level_with(const std::vector<float>& gain_db) const {
    std::vector<float> result = levels_.louder_db;
    std::transform(result.begin(), result.end(), gain_db.begin(), result.begin(),
                   [](float level_db, float gain) { return level_db + gain; });
    return speech_level(result, phrases_.words, all_bins());
}

/** Whether it was even before: then no gain that moves, and no filter, makes it better. */
void PreparationRun::judge_evenness(double one_gain_db) {
    const double room_db = kCeiling_db - level_of_amplitude(peak_);
    const std::vector<float> before = without_pauses(levels_.weighted_db, pauses_);
    if (is_even(before, phrased(), phrases_) && one_gain_db < room_db + kShortOfTarget_db) {
        const double peak = counted_peak(peak_, true_peak_of(run_.recording));
        one_gain_db_ = std::min(one_gain_db, kCeiling_db - level_of_amplitude(peak));
        way_ = Way::kOneGain;
        facts_.even = true;
    }
}

/** The recording's format, in the bit depth that the tuning names. */
int PreparationRun::output_format() const {
    const int format = run_.format != 0 ? run_.format : info_.format;
    // The engine has taken the depth from its options, which may be a file, and refused wrong ones.
    if (leveled_copy_.empty()) {
        return format;
    }
    const int encoding = InputFile(leveled_copy_).info().format & SF_FORMAT_SUBMASK;
    return encoding == SF_FORMAT_FLOAT ? format : (format & ~SF_FORMAT_SUBMASK) | encoding;
}

OutputFile PreparationRun::open_output() {
    const int format = output_format();
    const int place = run_.open_place ? run_.open_place() : -1;
    const off_t begin = place == -1 ? -1 : lseek(place, 0, SEEK_CUR);
    // Behind other bytes the library writes at the end of the file, wherever it is opened.
    if (begin > 0 && ftruncate(place, begin) != 0) {
        return {run_.output, format, info_.channels, info_.samplerate};
    }
    result_.in_place = place != -1;
    if (result_.in_place) {
        return {place, format, info_.channels, info_.samplerate};
    }
    return {run_.output, format, info_.channels, info_.samplerate};
}

void PreparationRun::put_together() {
    const auto progress = part_of(progress_, kEngineDone, 1);
    tell_of_pauses();
    OutputFile out = open_output();
    facts_.dithered = out.is_dithered();
    if (way_ != Way::kEngine) {
        result_.note.clear();  // of a level that is not used
    }
    if (way_ == Way::kOneGain) {
        facts_.pauses = 0;
        facts_.pauses_s = 0;
        curve_db_.assign(curve_db_.size(), 0.0F);
        result_.leveling = leveling_of_phrases(phrases_, curve_db_);
        render_with_one_gain(run_.recording, quorvane::portable_amplitude(one_gain_db_), out,
                             progress);
    } else if (way_ == Way::kPhrases) {
        facts_.phrases = static_cast<int>(phrases_.phrases.size());
        result_.leveling = leveling_of_phrases(phrases_, curve_db_);
        CurveReader reader(run_.recording, high_pass_, curve_db_, bin_frames_);
        render_limited(reader, info_,
                       {quorvane::portable_amplitude(kCeiling_db),
                        bins_to_limit(levels_.peak, kCeiling_db, curve_db_)},
                       out, progress);
    } else {
        render_engine(out, progress);
    }
    if (!copy_.empty()) {
        unlink(copy_.c_str());
        unlink(leveled_copy_.c_str());
    }
}

void PreparationRun::render_engine(OutputFile& out,
                                   const std::function<void(double)>& progress) const {
    Rendering rendering{run_.recording, leveled_copy_, {}, high_pass_, {}, bin_frames_};
    if (!sets_engine(run_.tuning)) {  // which looks at samples alone
        rendering.trim_db = trim_curve(after_.peak, kCeiling_db);
    }
    if (!pauses_.empty()) {
        const SpeechGains gains(levels_.speech_db, after_.speech_db, speech_, pauses_);
        rendering.pause_gains = pause_gains(gains, levels_.peak, pauses_, kCeiling_db);
    }
    render(rendering, *timeline_, out, progress);
}

/** The passages and the gain curve are of the copy: they move to the recording's time. */
void PreparationRun::tell_of_pauses() {
    facts_.pauses = static_cast<int>(pauses_.size());
    for (const Stretch& pause : timeline_->left_out()) {
        facts_.pauses_s += static_cast<double>(pause.length()) / info_.samplerate;
    }
    if (result_.leveling && !pauses_.empty()) {
        move_to_recording(*result_.leveling, *timeline_, info_.samplerate);
    }
}

}  // namespace

PreparedResult level_prepared(const PreparedRun& run, const std::function<void(double)>& progress) {
    return PreparationRun(run, progress).go();
}

}  // namespace quorvane
