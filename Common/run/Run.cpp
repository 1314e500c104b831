#include "Common/run/Run.h"

#include <boost/filesystem.hpp>
#include <exception>

#include "Common/audio/SoundFile.h"
#include "Common/audio/is_constant.h"
#include "Common/files/copy_file.h"
#include "Common/platform.h"
#include "Common/reporting/cancel.h"
#include "Common/reporting/findings.h"
#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/run/constants.h"
#include "Common/run/input_look.h"
#include "Common/run/outcome_record.h"
#include "Common/step/failure.h"

namespace fs = boost::filesystem;

namespace level_engine {

/*
 * The run reads from top to bottom: go() names what happens in its order; run_steps.cpp has a
 * function for each step, RunFiles looks after the files between them.
 *
 * Ends that need no more work (a copy, a failed step) throw EndOfRun, which go() turns into the
 * result. What a step throws beside its own errors is reported there once.
 */

/** Thrown inside Run where a result is known and nothing is left to do. */
struct Run::EndOfRun {
    Result result;
};

Run::Run(const CCLArgs& args, const RunSettings& settings, OutcomeRecord& record)
    : args_(args), settings_(settings), record_(record), files_(settings) {}

Run::~Run() {
    record_.keep_left_files(files_.names());
}

int Run::go() {
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
            record_.fail(step_, files_.names());
        }
        return end.result;
    } catch (const ss_cancel_exception&) {
        throw;
    } catch (const std::exception&) {
        check_cancelled();  // a signal may have cut a call short
        report_current_failure();
        record_.fail(step_, files_.names());
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
    if (args_.input_file.rfind('.') == std::string::npos) {
        fail(243, "Could not find extension for input sound file");
    }
    files_.place(args_.input_file, args_.output_file);
}

/** Begins a step: the file that it will write belongs to the run from now on. */
std::string Run::begin_step(int step, Intermediate output) {
    check_cancelled();
    step_ = step;
    reporting::forget_failure();
    return files_.add(output, info_);
}

/** Ends the run when a step failed; a cancellation that made it fail is one all the same. */
void Run::require_step(int mark, bool success) {
    if (!success) {
        check_cancelled();
        log_msg(kMessageSource, mark,
                "Step " + std::to_string(step_) + " did not complete successfully");
        throw EndOfRun{kFailure};
    }
}

/** Ends the run for a reason of the driver's own. */
void Run::fail(int mark, const std::string& message) {
    log_failure(kMessageSource, mark, message);
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
    record_.copy_after_failure(step_, files_.names());
    make_copy();
}

/** A copy that fails is a failure of the run, in none of its steps. */
void Run::make_copy() {
    reporting::forget_failure();
    step_ = 0;
    const int result = settings_.copy ? settings_.copy(args_.input_file, args_.output_file)
                                      : copy_file(args_.input_file, args_.output_file);
    throw EndOfRun{result == 0 ? kSuccess : kFailure};
}

/** Hands the last file to the caller, or to the program that holds the engine. */
void Run::deliver(const std::string& final_file) {
    if (!settings_.deliver) {
        moveFinalFile(final_file.c_str(), args_.output_file.c_str());
    } else if (settings_.deliver(final_file, args_.output_file) != 0) {
        check_cancelled();
        reporting::note_failure(reporting::Kind::kSystem,
                                "the output " + args_.output_file + " could not be delivered");
        throw EndOfRun{kFailure};
    }
}

void Run::succeed(LevelOutcomeKind kind, const std::string& reason) {
    record_.succeed(kind, reason);
    record_.report_defect(files_.names());
}

}  // namespace level_engine
