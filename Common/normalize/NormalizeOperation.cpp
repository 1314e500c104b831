#include "Common/normalize/NormalizeOperation.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <string>

#include "Common/audio/SoundFile.h"
#include "Common/bins/fail_write.h"
#include "Common/bins/measure.h"
#include "Common/bins/peak.h"
#include "Common/bins/walls.h"
#include "Common/normalize/MainIterationLoop.h"
#include "Common/normalize/normalize.h"
#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"
#include "Common/units.h"

/*
 * The order of the step: open, measure, fit, apply. Usually each comes once. Where the target may
 * be lowered, fit and apply are repeated until nothing passes full scale; every try writes the
 * output from its beginning, so that what stands under its name at the end is one whole try.
 */
namespace normalize {

namespace {

constexpr const char* kSource = "Common/normalize/NormalizeOperation";
// A step too small to be audible, and large enough that 40 dB take 80 tries at most.
constexpr double kTargetStep_db = 0.5;
constexpr double kMostLowering_db = 40.0;  // then every peak that counts stays below the ceiling

/** Levels above full scale make no sense here: turns one negative and says so. */
void make_negative(double& level_db, const char* warning, int line) {
    if (level_db > 0.0) {
        level_db = -level_db;
        char text[128];
        std::snprintf(text, sizeof text, "%s  Value has been changed to %.2lf.", warning, level_db);
        log_msg(kSource, line, text);
    }
}

/** Whether the encoding takes samples beyond full scale as they are. */
bool holds_any_level(int format) {
    const int encoding = format & SF_FORMAT_SUBMASK;
    return encoding == SF_FORMAT_FLOAT || encoding == SF_FORMAT_DOUBLE;
}

}  // namespace

NormalizeOperation::NormalizeOperation(const NormalizeArgs& args, FitFailure on_failure)
    : args_(args), on_failure_(on_failure) {
    make_negative(args_.peak_output_db, "Warning: Peak must be negative.", __LINE__);
    make_negative(args_.noise_floor_db, "Warning: Specified noise floor was positive.", __LINE__);
    noise_floor_ = db_to_linear(args_.noise_floor_db);
    peak_output_ = db_to_linear(args_.peak_output_db);
}

void NormalizeOperation::Execute() {
    SF_INFO info{};
    const SoundHandle handle = open_sound_for_reading(args_.sound_file_in, info);
    if (!handle) {
        throw ss_sf_openinput_error(args_.sound_file_in);
    }
    step_errors::require_known_channels<Step>(args_.sound_file_in, info);
    step_errors::require_other_file<Step>(args_.sound_file_in, args_.sound_file_out);
    // Opened for writing only after the fit: a recording that cannot be leveled makes no output.
    input_.reset(new SoundSource(handle, args_.sound_file_in, info));
    grid_ = make_bin_grid<Step>(info, args_.bin_size_ms);
    overall_level_ = InitializeBinArray();
    if (overall_level_ == 0.0) {
        throw ss_sf_input_silent_error(args_.sound_file_in);
    }
    result_.level_db = linear_to_db(overall_level_);
    allocate(pWallGains, static_cast<std::size_t>(grid_.walls), "pWallGains", kSource);
    // A try that already misses in the bins' figures is not written: only its successor is.
    for (bool done = false; !done; result_.lowered_by_db += done ? 0.0 : kTargetStep_db) {
        const bool fits = Fit(args_.target_level_db - result_.lowered_by_db);
        const bool last =
            on_failure_ == FitFailure::kStand || result_.lowered_by_db >= kMostLowering_db;
        if (last || fits) {
            rewind(*input_);
            ApplyGains();
            done = last || above_full_scale_ == 0;
        }
    }
}

bool NormalizeOperation::Fit(double target_db) {
    // Ramps last whole bins: what a length has beyond them is cut off.
    MainIterationLoop loop(overall_level_, pBin.get(), grid_.bins, noise_floor_, peak_output_,
                           pWallGains.get(), args_.attack_ms / args_.bin_size_ms,
                           args_.release_ms / args_.bin_size_ms, db_to_linear(target_db),
                           args_.fit_tolerance_db);
    loop.Go();
    result_.target_db = target_db;
    result_.error_db = loop.last_error_db();
    result_.gain = loop.last_gain();
    result_.within_tolerance = loop.within_tolerance();
    return (loop.within_tolerance() || !loop.has_level()) && !surely_above_full_scale();
}

/** Checks the bins only, which saves a pass over the audio with the same result. */
bool NormalizeOperation::surely_above_full_scale() const {
    constexpr double kRounding = 1e-9;  // of the ramp between two walls
    for (int i = 0; i < grid_.bins; ++i) {
        // The peak may sit anywhere in the bin, also where the gain is least.
        const double least_gain = std::min(pWallGains[i], pWallGains[i + 1]);
        if (pBin[i].peak * least_gain > 1.0 + kRounding) {
            return true;
        }
    }
    return false;
}

double NormalizeOperation::InitializeBinArray() {
    allocate(pBin, static_cast<std::size_t>(grid_.bins), "pBin", kSource);
    return measure_bins<Step, RmsOfLouderChannel>(*input_, grid_, noise_floor_, pBin,
                                                  progress_range::kNormalizeMeasure, kSource);
}

void NormalizeOperation::ApplyGains() {
    // The library writes into the structure that it is given: the output gets a copy.
    SF_INFO info = input_->info();
    info.format = output_format(info.format, args_.bit_depth);
    const SoundFile file(args_.sound_file_out, &info, true);
    SoundWriter writer(file.handle(), args_.sound_file_out, info.channels, grid_.bin_frames,
                       fail_write<Step>);
    const bool holds = !holds_any_level(info.format);
    const auto mode = holds ? FullScaleHold::Mode::kHold : FullScaleHold::Mode::kOnlyCount;
    // Where the target may be lowered, floats are counted, too: a level that ran away is one in any
    // encoding. Else they go to the writer straight, without the detour.
    const stream::Part ramps = wall_ramps(info.channels, grid_, pWallGains.get());
    std::atomic<long long> held{0};
    const stream::Part held_ramps = [&](stream::Receiver& end, long long first_frame,
                                        double* samples, long long frames) {
        FullScaleHold hold(info.channels, end, mode);
        ramps(hold, first_frame, samples, frames);
        held += hold.held();
    };
    const bool again = above_full_scale_ > 0;  // progress does not go back for it
    stream::pump_parts(*input_, writer,
                       holds || on_failure_ != FitFailure::kStand ? held_ramps : ramps,
                       grid_.pacer(again ? progress_range::kDone : progress_range::kNormalizeApply),
                       stream::kToTheEnd, {"pBinData", kSource});
    above_full_scale_ = held;
    result_.held_samples = holds ? above_full_scale_ : 0;
}

void FullScaleHold::process(double* samples, long long frames) {
    // Nearly every block passes as it is. To look for the largest is several times faster than to
    // count.
    if (peak_of(samples, frames * channels_, 0.0) > 1.0) {
        hold(samples, frames);
    }
    next().process(samples, frames);
}

void FullScaleHold::hold(double* samples, long long frames) {
    for (long long i = 0; i < frames * channels_; ++i) {
        held_ += static_cast<long long>(std::fabs(samples[i]) > 1.0);
        if (mode_ == Mode::kHold) {
            samples[i] = std::max(std::min(samples[i], 1.0), -1.0);
        }
    }
}

int output_format(int input_format, int bit_depth) {
    if (bit_depth == 0) {
        return input_format;
    }
    // The library keeps container and encoding in two bit fields of one number. It refuses pairs
    // that do not exist, such as signed samples of 8 bits in WAV, when the file is opened.
    int encoding = 0;
    switch (bit_depth) {
        case 8:
            encoding = SF_FORMAT_PCM_S8;
            break;
        case 16:
            encoding = SF_FORMAT_PCM_16;
            break;
        case 24:
            encoding = SF_FORMAT_PCM_24;
            break;
        case 32:
            encoding = SF_FORMAT_PCM_32;
            break;
        default:
            reporting::say_failure(reporting::Kind::kOther,
                                   "Unknown bit depth: " + std::to_string(bit_depth));
            break;
    }
    return (input_format & SF_FORMAT_TYPEMASK) | encoding;
}

FitResult Normalize(const NormalizeArgs& args, FitFailure on_failure) {
    NormalizeOperation operation(args, on_failure);
    operation.Execute();
    return operation.result();
}

}  // namespace normalize
