#include "Common/run/Run.h"

#include <unistd.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Common/apply_gains/ag_common.h"
#include "Common/audio/SoundFile.h"
#include "Common/audio/is_constant.h"
#include "Common/audio/sample_codec.h"
#include "Common/audio/scratch_sounds.h"
#include "Common/bins/measured_bins.h"
#include "Common/calc_rms/calc_rms.h"
#include "Common/calculate_gains/calculate_gains.h"
#include "Common/files/copy_file.h"
#include "Common/gate/gate.h"
#include "Common/highpass/highpass.h"
#include "Common/normalize/normalize.h"
#include "Common/platform.h"
#include "Common/reduce_loud/reduce_loud.h"
#include "Common/reduce_loud_peak/reduce_loud_peak.h"
#include "Common/reporting/findings.h"
#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/run/argv.h"
#include "Common/run/constants.h"
#include "Common/run/free_space.h"
#include "Common/run/input_look.h"
#include "Common/run/outcome_record.h"
#include "Common/smooth_gains/smooth_gains.h"
#include "Common/ss_util.h"
#include "Common/step/failure.h"
#include "Common/stream/riders.h"
#include "Common/wrap_segment/wrap_segment.h"

namespace fs = boost::filesystem;

/*
 * The run reads from top to bottom: go() names what happens in its order, and below it stands one
 * function for each step that builds the step's command line, calls it and lets go of the file that
 * nobody reads any more. Steps talk through files and text alone, so that each can be run by itself
 * on what another one wrote; the price, a quantisation at each hand-over in the input's encoding,
 * is part of the result and stays.
 *
 * Ends that need no more work (a copy, a failed step) throw EndOfRun, which go() turns into the
 * result. What a step throws beside its own errors is reported there once.
 */

namespace {

// The messages' source and marks are those of the file that this one came from: see log_msg.
constexpr const char* kSource = "Common/level";
constexpr double kGateBelowLevel_db = 18.0;  // the gate's threshold stands this far below
constexpr double kHighestGateThreshold_db = -40.0;
constexpr double kQuietDelta_db = -12.0;  // bins this far below the mean take no part in step 6

/** What callers set for all later runs. */
struct Settings {
    bool keep_intermediates = false;
    bool hide_intermediates = false;
    bool lower_target = false;
    bool end_flat_ramps = false;
    std::function<int()> open_final;
    Run::Copy copy = copy_file;
};

Settings settings;
Intermediates last_intermediates;
boost::mutex temporary_directory_mutex;

int call_step(int (*entry)(int, const char**), std::initializer_list<std::string> words) {
    Argv arguments(words);
    return entry(arguments.argc(), arguments.argv());
}

bool hides_intermediates() {
    return settings.hide_intermediates && !settings.keep_intermediates;
}

/** What the names of the intermediate files begin with; input_stem serves where there is no "/". */
std::string temporary_base(const std::string& input_stem) {
    if (!fs::exists("/")) {
        return input_stem;
    }
    boost::unique_lock<boost::mutex> lock(temporary_directory_mutex);
    char* directory = copyTemporaryDirectory();
    if (directory == nullptr || *directory == '\0') {
        std::free(directory);
        throw std::runtime_error("There is no directory for temporary files.");
    }
    std::string base = std::string("/") + (directory + 1);
    std::free(directory);
    return base;
}

/**
 * Removes a file of an earlier run. What stands there may also be a link that somebody put into a
 * shared folder: a step that opened it would write over what it points to.
 */
void remove_old(const std::string& path) {
    ::unlink(path.c_str());
}

std::string format_db(double level_db) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1lf", level_db);
    return text;
}

}  // namespace

/** Thrown inside Run where a result is known and nothing is left to do. */
struct Run::EndOfRun {
    Result result;
};

void Run::keep_intermediates(bool keep) {
    settings.keep_intermediates = keep;
}

void Run::hide_intermediates(bool hide) {
    settings.hide_intermediates = hide;
}

void Run::write_final_into(std::function<int()> open) {
    settings.open_final = std::move(open);
}

void Run::copy_by(Copy copy) {
    settings.copy = copy ? std::move(copy) : Copy(copy_file);
}

void Run::lower_target(bool lower) {
    settings.lower_target = lower;
}

void Run::end_flat_ramps(bool end) {
    settings.end_flat_ramps = end;
}

Run::~Run() {
    ScratchSounds::instance().clear();
    MeasuredRecordings::instance().clear();
    stream::Riders::instance().clear();
    last_intermediates = std::move(intermediates_);
}

void Run::discard_intermediates() {
    last_intermediates.remove_all();
}

int Run::go() {
    OutcomeRecord& record = OutcomeRecord::instance();
    try {
        look_at_input();
        prepare_intermediates();
        conditioned_ = args_.input_file;
        if (!kSkipConditioning) {
            filter();
            gate_noise();
            reduce_peaks();
            reduce_loud_passages();
        }
        measure_levels();
        find_segments();
        calculate_segment_gains();
        smooth_gain_curve();
        apply_gain_curve();
        normalize_and_deliver();
        return kSuccess;
    } catch (const EndOfRun& end) {
        if (end.result == kFailure) {
            record.fail(step_, intermediates_);
        }
        return end.result;
    } catch (const ss_cancel_exception&) {
        throw;
    } catch (const std::exception&) {
        check_cancelled();  // a signal may have cut a call short
        report_current_failure();
        record.fail(step_, intermediates_);
        return kFailure;
    }
}

/** Finds the inputs that end here: not there, too short, constant, or of a format that stays shut.
 */
void Run::look_at_input() {
    boost::system::error_code error;
    const fs::file_type type = fs::status(args_.input_file, error).type();
    if (type == fs::file_not_found || type == fs::status_error) {
        fail(169, "Could not find " + args_.input_file);
    }
    SoundFile input(args_.input_file, true);
    input.GetInfo(&info_);
    check_cancelled();
    LevelFindings& found = findings();
    found.sample_rate_hz = info_.samplerate;
    found.channels = info_.channels;
    found.frames = info_.frames;

    const double duration_s = static_cast<double>(info_.frames) / info_.samplerate;
    if (duration_s < kShortestInput_s) {
        note_odd_samples(input, info_, info_.frames);
        copy_input(kLevelCopiedTooShort, "shorter than 0.05 s");
    }
    if (is_constant(input, info_)) {
        note_frames_missing(input, info_);
        note_odd_samples(input, info_, 1);  // all others are the same
        copy_input(kLevelCopiedConstant,
                   begins_with_zero(input, info_) ? "silent" : "every sample is the same");
    }
    if (duration_s < 0.0) {  // no real file gets here
        if (normalize_into(args_.input_file, args_.output_file) != 0) {
            fail(229, "error in normalization step");
        }
        succeed(kLevelLeveled);
        throw EndOfRun{kSuccess};
    }
    require_writable_format(args_.input_file, info_, args_.bit_depth);
}

/** All that can be refused without writing anything is refused here. */
void Run::prepare_intermediates() {
    const std::size_t dot = args_.input_file.rfind('.');
    if (dot == std::string::npos) {
        fail(243, "Could not find extension for input sound file");
    }
    const std::string base = temporary_base(args_.input_file.substr(0, dot));
    intermediates_ = Intermediates(base, args_.input_file.substr(dot));
    require_free_space(args_.input_file);
    intermediates_.require_apart(args_.input_file, args_.output_file);
}

/** Step 1 takes the rumble out and measures what is left: its result is a level, 0.0 a failure. */
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
    const std::string filtered = path(Intermediate::kFiltered);
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
    done_with({filtered});
}

/** Step 3 lowers slams and coughs: bins whose peak stands far above the mean level. */
void Run::reduce_peaks() {
    const std::string without_peaks = begin_step(3, Intermediate::kWithoutPeaks);
    const std::string gated = path(Intermediate::kGated);
    const int result =
        call_step(reduce_loud_peak::_tmain,
                  {"reduce_loud_peak", "--level_diff", options::peak__level_diff, "--attack",
                   options::peak__attack, "--release", options::peak__release, "--noise-floor",
                   options::peak__noise_floor, "--bin-size", options::peak__bin_size, "--verbosity",
                   options::peak__verbosity, gated, without_peaks});
    if (result != 0) {
        check_cancelled();
        log_msg(kSource, 446,
                "Step 3 did not complete successfully, will copy input to output and bail");
        if (reporting::first_failure().kind == reporting::Kind::kNothingToLevel) {
            copy_input(kLevelCopiedQuiet, "nothing in it is louder than the noise floor of " +
                                              options::peak__noise_floor + " dB");
        }
        copy_input_after_failure();
    }
    done_with({gated});
}

/** Step 4 lowers what is loud for longer: bins whose RMS stands above the mean level. */
void Run::reduce_loud_passages() {
    conditioned_ = begin_step(4, Intermediate::kConditioned);
    const std::string without_peaks = path(Intermediate::kWithoutPeaks);
    require_step(492, call_step(reduce_loud::_tmain,
                                {"reduce_loud", "--level_diff", options::level_diff, "--attack",
                                 options::attack, "--release", options::release, "--noise-floor",
                                 options::noise_floor, "--bin-size", options::bin_size,
                                 without_peaks, conditioned_}) == 0);
    done_with({without_peaks});
}

/** Step 5 writes a level per bin, the segmentation's input. */
void Run::measure_levels() {
    const std::string levels = begin_step(5, Intermediate::kLevels);
    require_step(528, call_step(calc_rms::_tmain, {"calc_rms", conditioned_, levels}) == 0);
}

/** Step 6 finds where the level changes. Its two fixed texts are read by nobody. */
void Run::find_segments() {
    const std::string cues = begin_step(6, Intermediate::kCues);
    const std::string levels = path(Intermediate::kLevels);
    require_step(
        553, wrap_segment::wrap_segment(levels, "whereisthisused", "..\\options_segment.txt", cues,
                                        kQuietDelta_db, info_.samplerate, kBin_s) == 0);
    done_with({levels});
}

/** Step 7 measures each segment and brings it to the mean: a gain per bin, in stairs. */
void Run::calculate_segment_gains() {
    const std::string segment_levels = begin_step(7, Intermediate::kSegmentLevels);
    const std::string gains = add_output(Intermediate::kGains);
    const std::string cues = path(Intermediate::kCues);
    require_step(601, call_step(calculate_gains::_tmain,
                                {"calculate_gains", "--noise-threshold", options::noise_threshold,
                                 "--bin-size", options::bin_size, "--gains-file", gains,
                                 "--rms-file", segment_levels, "--gain-limit", options::gain_limit,
                                 conditioned_, cues}) == 0);
    OutcomeRecord::instance().collect_passages(cues, segment_levels, gains);
    done_with({cues});
}

/** Step 8 makes slopes of the stairs: 40 bins on one side of a change, 2 on the other. */
void Run::smooth_gain_curve() {
    const std::string smoothed = begin_step(8, Intermediate::kSmoothedGains);
    const std::string gains = path(Intermediate::kGains);
    Argv words{"smooth_gains", "-a", "40", "-b", "2", gains, smoothed};
    const auto flat = settings.end_flat_ramps ? smooth_gains::FlatRamp::kEndAtTarget
                                              : smooth_gains::FlatRamp::kLast;
    require_step(630, smooth_gains::run_smooth_gains(words.argc(), words.argv(), flat) == 0);
    OutcomeRecord::instance().collect_gain_curve(smoothed);
    done_with({path(Intermediate::kSegmentLevels), gains});
}

/** Step 9 multiplies audio and curve. It throws where it fails, and has no other result. */
void Run::apply_gain_curve() {
    const std::string leveled = begin_step(9, Intermediate::kLeveled);
    const std::string smoothed = path(Intermediate::kSmoothedGains);
    apply_gains::ApplyGains(kBin_ms, smoothed, conditioned_, leveled);
    done_with({smoothed});
    if (conditioned_ != args_.input_file) {
        done_with({conditioned_});
    }
    check_cancelled();
    if (!ScratchSounds::instance().has(leveled) && !fs::exists(leveled)) {
        fail(684, "Could not find " + leveled);
    }
}

/** Step 10 brings the whole to the target level; then the platform takes the file over. */
void Run::normalize_and_deliver() {
    step_ = 10;
    reporting::forget_failure();
    const std::string leveled = path(Intermediate::kLeveled);
    const std::string final_file = path(Intermediate::kFinal);
    remove_old(final_file);
    ScratchSounds::instance().drop_room();  // nothing comes after the leveled audio
    const int lent = lend_final_file(final_file);
    if (OutcomeRecord::instance().is_collecting()) {
        output_meter_.ride_to(final_file, info_.channels, lent);
    }
    require_step(707, normalize_into(leveled, final_file) == 0);
    done_with({leveled});
    require_step(724, ScratchSounds::instance().has(final_file) || fs::exists(final_file));
    succeed(kLevelLeveled);  // the platform may ask what it gets
    moveFinalFile(final_file.c_str(), args_.output_file.c_str());
    if (kShowDuration) {
        ShowDuration(gStart);
    }
}

/**
 * The last file may stand where it is to stay, which spares a copy: its descriptor, or -1. Not an
 * encoder's, whose length nobody knows before.
 */
int Run::lend_final_file(const std::string& final_file) {
    const int format = args_.bit_depth == 0
                           ? info_.format
                           : normalize::output_format(info_.format, args_.bit_depth);
    const bool wanted = hides_intermediates() && settings.open_final;
    const int lent = wanted && SampleCodec::is_plain_in(format) ? settings.open_final() : -1;
    if (!ScratchSounds::instance().hold_in(final_file, lent)) {
        return -1;
    }
    intermediates_.lend_final();
    return lent;
}

/** No other option of step 10 can be set from outside. */
int Run::normalize_into(const std::string& from, const std::string& to) {
    Argv words{
        "normalize", "-l", options::normalize__target_level, "-b", std::to_string(args_.bit_depth),
        from,        to};
    normalize::FitResult fit;
    const int result = normalize::run_normalize(
        words.argc(), words.argv(), fit,
        settings.lower_target ? normalize::Miss::kLowerTarget : normalize::Miss::kStand);
    if (result == 0) {
        LevelFindings& found = findings();
        found.normalize_level_db = fit.level_db;
        found.target_level_db = fit.target_db;
        found.fit_error_db = fit.error_db;
        found.fit_gain = fit.gain;
        found.target_lowered_db = fit.lowered_by_db;
        found.held_samples = fit.held_samples;
        // A second try has written over what was measured.
        if (fit.lowered_by_db == 0.0) {
            output_meter_.tell(found);
        }
    }
    return result;
}

/** Begins a step: the file that it will write belongs to the run from now on. */
std::string Run::begin_step(int step, Intermediate output) {
    check_cancelled();
    step_ = step;
    reporting::forget_failure();
    return add_output(output);
}

std::string Run::add_output(Intermediate output) {
    std::string file = path(output);
    temp_files_.add(file);
    remove_old(file);
    if (hides_intermediates() && Intermediates::is_audio(output)) {
        try {
            ScratchSounds::instance().hold(file, intermediates_.base());
            measure_as_written(output);
        } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): works without both
        }
    }
    return file;
}

/**
 * Has what a step writes measured on its way as the next step is going to measure it. Settings that
 * are no numbers the next step refuses by itself.
 */
void Run::measure_as_written(Intermediate output) {
    MeasuredRecordings& recordings = MeasuredRecordings::instance();
    const std::string file = path(output);
    if (output == Intermediate::kGated) {
        recordings.expect<RmsOfAllSamples>(file, info_, std::atoi(options::peak__bin_size.c_str()));
    } else if (output == Intermediate::kWithoutPeaks) {
        recordings.expect<RmsOfLouderChannel>(file, info_, std::atoi(options::bin_size.c_str()));
    } else if (output == Intermediate::kConditioned) {
        recordings.expect<RmsOfAllSamples>(file, info_, kBin_ms);
    } else if (output == Intermediate::kLeveled) {
        recordings.expect<RmsOfLouderChannel>(file, info_, kBin_ms);
    }
}

/** Deletes the files that no later step reads. */
void Run::done_with(std::initializer_list<std::string> paths) {
    for (const std::string& file : paths) {
        temp_files_.markForDeletion(file);
    }
    if (!settings.keep_intermediates) {
        temp_files_.deleteMarked();
        for (const std::string& file : paths) {
            ScratchSounds::instance().let_go(file);
            MeasuredRecordings::instance().forget(file);
        }
    }
}

/** Ends the run when a step failed; a cancellation that made it fail is one all the same. */
void Run::require_step(int mark, bool success) {
    if (!success) {
        check_cancelled();
        log_msg(kSource, mark, "Step " + std::to_string(step_) + " did not complete successfully");
        throw EndOfRun{kFailure};
    }
}

/** Ends the run for a reason of the driver's own. */
void Run::fail(int mark, const std::string& message) {
    log_failure(kSource, mark, message);
    throw EndOfRun{kFailure};
}

/** Ends the run with the input as the output. */
void Run::copy_input(LevelOutcomeKind kind, const std::string& reason) {
    CProgress(progress_range::kDone.low, progress_range::kDone.high).show(1.0);
    succeed(kind, reason);
    make_copy();
}

void Run::copy_input_after_failure() {
    CProgress(progress_range::kDone.low, progress_range::kDone.high).show(1.0);
    OutcomeRecord::instance().copy_after_failure(step_, intermediates_);
    make_copy();
}

/** The copy may fail, too: then that is what came of the run. */
void Run::make_copy() {
    reporting::forget_failure();
    step_ = 0;
    throw EndOfRun{settings.copy(args_.input_file, args_.output_file) == 0 ? kSuccess : kFailure};
}

void Run::succeed(LevelOutcomeKind kind, const std::string& reason) {
    OutcomeRecord::instance().succeed(kind, reason);
    OutcomeRecord::instance().report_defect(intermediates_);
}
