#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>

#include "Common/CommandLine.h"
#include "Common/apply_gains/ag_common.h"
#include "Common/calc_rms/calc_rms.h"
#include "Common/calculate_gains/calculate_gains.h"
#include "Common/gate/gate.h"
#include "Common/highpass/highpass.h"
#include "Common/normalize/normalize.h"
#include "Common/reduce_loud/reduce_loud.h"
#include "Common/reduce_loud_peak/reduce_loud_peak.h"
#include "Common/reporting/findings.h"
#include "Common/reporting/log.h"
#include "Common/run/Run.h"
#include "Common/run/argv.h"
#include "Common/run/constants.h"
#include "Common/run/outcome_record.h"
#include "Common/smooth_gains/smooth_gains.h"
#include "Common/wrap_segment/wrap_segment.h"

namespace level_engine {

/*
 * The ten steps of a run, a function each: it builds the step's command line, calls the step and
 * removes the file that no later step reads. Steps exchange files and text alone, so that each can
 * be run by itself on what another one wrote; the price, a quantisation at each hand-over in the
 * input's encoding, is part of the result and stays.
 */

namespace {

constexpr double kGateBelowLevel_db = 18.0;  // the gate's threshold stands this far below
constexpr double kHighestGateThreshold_db = -40.0;
constexpr double kQuietDelta_db = -12.0;  // bins this far below the mean take no part in step 6

int call_step(int (*entry)(int, const char**), std::initializer_list<std::string> words) {
    Argv arguments(words);
    return entry(arguments.argc(), arguments.argv());
}

std::string format_db(double level_db) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1lf", level_db);
    return text;
}

}  // namespace

/** Step 1 removes rumble and measures the rest: it returns a level, or 0.0 on failure. */
void Run::filter() {
    const std::string filtered = begin_step(1, Intermediate::kFiltered);
    Argv words{"highpass",
               "--highpass__low",
               options::highpass__low,
               "--highpass__high",
               options::highpass__high,
               "--highpass__verbosity",
               options::highpass__verbosity,
               args_.input_file,
               filtered};
    filtered_level_db_ = highpass::_tmain(words.argc(), words.argv());
    require_step(334, filtered_level_db_ < 0.0);
    findings().filtered_level_db = filtered_level_db_;
}

/** Step 2 turns the pauses down. Its threshold follows the recording, one value for both ways. */
void Run::gate_noise() {
    const std::string gated = begin_step(2, Intermediate::kGated);
    const std::string filtered = files_.path(Intermediate::kFiltered);
    const double threshold_db =
        std::min(filtered_level_db_ - kGateBelowLevel_db, kHighestGateThreshold_db);
    const std::string threshold = format_db(threshold_db);
    findings().gate_threshold_db = std::atof(threshold.c_str());
    require_step(396, call_step(gate::_tmain, {"gate",
                                               "--gate__attenuation_max",
                                               options::gate__attenuation_max,
                                               "--gate__attenuation_min",
                                               options::gate__attenuation_min,
                                               "--gate__threshold_attack",
                                               threshold,
                                               "--gate__threshold_release",
                                               threshold,
                                               "--gate__attack",
                                               options::gate__attack,
                                               "--gate__release",
                                               options::gate__release,
                                               "--gate__hold_time",
                                               options::gate__hold_time,
                                               "--gate__buffer_size",
                                               options::gate__buffer_size,
                                               "--gate__anticipate_attack",
                                               options::gate__anticipate_attack,
                                               "--gate__verbosity",
                                               options::gate__verbosity,
                                               filtered,
                                               gated}) == 0);
    files_.done_with({filtered});
}

/** Step 3 lowers slams and coughs: bins whose peak is far above the mean level. */
void Run::reduce_peaks() {
    const std::string without_peaks = begin_step(3, Intermediate::kWithoutPeaks);
    const std::string gated = files_.path(Intermediate::kGated);
    const int result =
        call_step(reduce_loud_peak::_tmain,
                  {"reduce_loud_peak", "--level_diff", options::peak__level_diff, "--attack",
                   options::peak__attack, "--release", options::peak__release, "--noise-floor",
                   options::peak__noise_floor, "--bin-size", options::peak__bin_size, "--verbosity",
                   options::peak__verbosity, gated, without_peaks});
    if (result != 0) {
        check_cancelled();
        log_msg(kMessageSource, 446,
                "Step 3 did not complete successfully, will copy input to output and bail");
        if (reporting::first_failure().kind == reporting::Kind::kNothingToLevel) {
            copy_input(kLevelCopiedQuiet, "nothing in it is louder than the noise floor of " +
                                              options::peak__noise_floor + " dB");
        }
        copy_input_after_failure();
    }
    files_.done_with({gated});
}

/** Step 4 lowers longer loud passages: bins whose RMS is far above the mean level. */
void Run::reduce_loud_passages() {
    conditioned_ = begin_step(4, Intermediate::kConditioned);
    const std::string without_peaks = files_.path(Intermediate::kWithoutPeaks);
    require_step(492, call_step(reduce_loud::_tmain,
                                {"reduce_loud", "--level_diff", options::level_diff, "--attack",
                                 options::attack, "--release", options::release, "--noise-floor",
                                 options::noise_floor, "--bin-size", options::bin_size,
                                 without_peaks, conditioned_}) == 0);
    files_.done_with({without_peaks});
}

/** Step 5 writes a level per bin, the segmentation's input. */
void Run::measure_levels() {
    const std::string levels = begin_step(5, Intermediate::kLevels);
    require_step(528, call_step(calc_rms::_tmain, {"calc_rms", conditioned_, levels}) == 0);
}

/** Step 6 finds where the level changes. It ignores its two fixed texts. */
void Run::find_segments() {
    const std::string cues = begin_step(6, Intermediate::kCues);
    const std::string levels = files_.path(Intermediate::kLevels);
    require_step(
        553, wrap_segment::wrap_segment(levels, "whereisthisused", "..\\options_segment.txt", cues,
                                        kQuietDelta_db, info_.samplerate, kBin_s) == 0);
    files_.done_with({levels});
}

/** Step 7 measures each segment and brings it to the mean: a gain per bin, in stairs. */
void Run::calculate_segment_gains() {
    const std::string segment_levels = begin_step(7, Intermediate::kSegmentLevels);
    const std::string gains = files_.add(Intermediate::kGains, info_);
    const std::string cues = files_.path(Intermediate::kCues);
    require_step(601, call_step(calculate_gains::_tmain,
                                {"calculate_gains", "--noise-threshold", options::noise_threshold,
                                 "--bin-size", options::bin_size, "--gains-file", gains,
                                 "--rms-file", segment_levels, "--gain-limit", options::gain_limit,
                                 conditioned_, cues}) == 0);
    record_.collect_passages(cues, segment_levels, gains);
    files_.done_with({cues});
}

/** Step 8 makes slopes of the stairs: 40 bins on one side of a change, 2 on the other. */
void Run::smooth_gain_curve() {
    const std::string smoothed = begin_step(8, Intermediate::kSmoothedGains);
    const std::string gains = files_.path(Intermediate::kGains);
    Argv words{"smooth_gains", "-a", "40", "-b", "2", gains, smoothed};
    const auto flat = settings_.end_flat_ramps ? smooth_gains::FlatRamp::kEndAtTarget
                                               : smooth_gains::FlatRamp::kLast;
    require_step(630, smooth_gains::run_smooth_gains(words.argc(), words.argv(), flat) == 0);
    record_.collect_gain_curve(smoothed);
    files_.done_with({files_.path(Intermediate::kSegmentLevels), gains});
}

/** Step 9 multiplies audio and curve. It throws where it fails, and has no other result. */
void Run::apply_gain_curve() {
    const std::string leveled = begin_step(9, Intermediate::kLeveled);
    const std::string smoothed = files_.path(Intermediate::kSmoothedGains);
    apply_gains::ApplyGains(kBin_ms, smoothed, conditioned_, leveled);
    files_.done_with({smoothed});
    if (conditioned_ != args_.input_file) {
        files_.done_with({conditioned_});
    }
    check_cancelled();
    if (!files_.exists(leveled)) {
        fail(684, "Could not find " + leveled);
    }
}

/** Step 10 brings the whole to the target level; then the platform takes the file over. */
void Run::normalize_and_deliver() {
    step_ = 10;
    reporting::forget_failure();
    const std::string leveled = files_.path(Intermediate::kLeveled);
    const int format = args_.bit_depth == 0
                           ? info_.format
                           : normalize::output_format(info_.format, args_.bit_depth);
    const std::string final_file = files_.add_final(info_, format);
    require_step(707, normalize_into(leveled, final_file) == 0);
    files_.done_with({leveled});
    require_step(724, files_.exists(final_file));
    succeed(kLevelLeveled);  // the platform may ask what it gets
    deliver(final_file);
    if (kShowDuration) {
        ShowDuration(gStart);
    }
}

/** No other option of step 10 can be set from outside. */
int Run::normalize_into(const std::string& from, const std::string& to) {
    Argv words{
        "normalize", "-l", options::normalize__target_level, "-b", std::to_string(args_.bit_depth),
        from,        to};
    normalize::FitResult fit;
    const int result =
        normalize::run_normalize(words.argc(), words.argv(), fit,
                                 settings_.lower_target ? normalize::FitFailure::kLowerTarget
                                                        : normalize::FitFailure::kStand);
    if (result == 0) {
        LevelFindings& found = findings();
        found.normalize_level_db = fit.level_db;
        found.target_level_db = fit.target_db;
        found.fit_error_db = fit.error_db;
        found.fit_gain = fit.gain;
        found.target_lowered_db = fit.lowered_by_db;
        found.held_samples = fit.held_samples;
        // A second try overwrote the file that was measured.
        if (fit.lowered_by_db == 0.0) {
            files_.measured_output(found);
        }
    }
    return result;
}

}  // namespace level_engine
