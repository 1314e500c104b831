#include "Common/normalize/NormalizeOperation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "Common/audio/SoundFile.h"
#include "Common/bins/fail_write.h"
#include "Common/bins/measure.h"
#include "Common/bins/walls.h"
#include "Common/files/same_file.h"
#include "Common/normalize/MainIterationLoop.h"
#include "Common/normalize/normalize.h"
#include "Common/reporting/findings.h"
#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"
#include "Common/units.h"

namespace normalize {

namespace {

constexpr const char* kSource = "Common/normalize/NormalizeOperation";

/** Levels above full scale make no sense here: turns one negative and says so. */
void make_negative(double& level_db, const char* warning, int line) {
    if (level_db > 0.0) {
        level_db = -level_db;
        char text[128];
        std::snprintf(text, sizeof text, "%s  Value has been changed to %.2lf.", warning, level_db);
        log_msg(kSource, line, text);
    }
}

bool holds_any_level(int format) {
    const int encoding = format & SF_FORMAT_SUBMASK;
    return encoding == SF_FORMAT_FLOAT || encoding == SF_FORMAT_DOUBLE;
}

}  // namespace

NormalizeOperation::NormalizeOperation(const NormalizeArgs& args) : args_(args) {
    make_negative(args_.peak_output_db, "Warning: Peak must be negative.", __LINE__);
    make_negative(args_.noise_floor_db, "Warning: Specified noise floor was positive.", __LINE__);
    noise_floor_ = db_to_linear(args_.noise_floor_db);
    peak_output_ = db_to_linear(args_.peak_output_db);
    target_level_ = db_to_linear(args_.target_level_db);
}

void NormalizeOperation::Execute() {
    SF_INFO info{};
    const SoundHandle handle = open_sound_for_reading(args_.sound_file_in, info);
    if (!handle) {
        throw ss_sf_openinput_error(args_.sound_file_in);
    }
    if (info.channels > 2) {
        throw ss_sf_too_many_channels_error(args_.sound_file_in, info.channels);
    }
    require_other_file(args_.sound_file_in, args_.sound_file_out);
    input_.reset(new SoundSource(handle, args_.sound_file_in, info));
    grid_ = make_bin_grid<Step>(info, args_.bin_size_ms);
    overall_level_ = InitializeBinArray();
    rewind(*input_);
    if (overall_level_ == 0.0) {
        throw ss_sf_input_silent_error(args_.sound_file_in);
    }
    allocate(pWallGains, static_cast<std::size_t>(grid_.walls), "pWallGains", kSource);
    MainIterationLoop loop(overall_level_, pBin.get(), grid_.bins, noise_floor_, peak_output_,
                           pWallGains.get(), args_.attack_ms / args_.bin_size_ms,
                           args_.release_ms / args_.bin_size_ms, target_level_,
                           args_.fit_tolerance_db);
    loop.Go();
    result_.error_db = loop.last_error_db();
    result_.gain = loop.last_gain();
    result_.within_tolerance = loop.within_tolerance();
    LevelFindings& found = findings();
    found.normalize_level_db = linear_to_db(overall_level_);
    found.target_level_db = args_.target_level_db;
    found.fit_error_db = result_.error_db;
    found.fit_gain = result_.gain;
    ApplyGains();
    found.held_samples = result_.held_samples;
}

double NormalizeOperation::InitializeBinArray() {
    allocate(pBin, static_cast<std::size_t>(grid_.bins), "pBin", kSource);
    return measure_bins<Step, RmsOfLouderChannel>(*input_, grid_, noise_floor_, pBin.get(),
                                                  progress_range::kNormalizeMeasure);
}

void NormalizeOperation::ApplyGains() {
    SF_INFO info = input_->info();
    info.format = output_format(info.format, args_.bit_depth);
    const SoundFile file(args_.sound_file_out, &info, true);
    SoundWriter writer(file.handle(), args_.sound_file_out, info.channels, grid_.bin_frames,
                       fail_write<Step>);
    FullScaleHold hold(info.channels, writer);
    stream::Receiver& output =
        holds_any_level(info.format) ? static_cast<stream::Receiver&>(writer) : hold;
    WallRamps ramps(info.channels, grid_, pWallGains.get(), output);
    stream::pump(*input_, ramps, grid_.pace(progress_range::kNormalizeApply));
    result_.held_samples = hold.held();
}

void FullScaleHold::take(double* samples, long long frames) {
    long long held = 0;
    for (long long i = 0; i < frames * channels_; ++i) {
        held += static_cast<long long>(std::fabs(samples[i]) > 1.0);
    }
    if (held > 0) {  // seldom
        for (long long i = 0; i < frames * channels_; ++i) {
            samples[i] = std::max(std::min(samples[i], 1.0), -1.0);
        }
        held_ += held;
    }
    next().take(samples, frames);
}

int output_format(int input_format, int bit_depth) {
    if (bit_depth == 0) {
        return input_format;
    }
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

FitResult Normalize(const NormalizeArgs& args) {
    NormalizeOperation operation(args);
    operation.Execute();
    return operation.result();
}

}  // namespace normalize
