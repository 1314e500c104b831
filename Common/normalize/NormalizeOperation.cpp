#include "Common/normalize/NormalizeOperation.h"

#include <cstdio>
#include <iostream>

#include "Common/audio/SoundFile.h"
#include "Common/bins/measure.h"
#include "Common/bins/walls.h"
#include "Common/normalize/MainIterationLoop.h"
#include "Common/normalize/normalize.h"
#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
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

}  // namespace

NormalizeOperation::NormalizeOperation(const NormalizeArgs& args) : args_(args) {
    make_negative(args_.peak_output_db, "Warning: Peak must be negative.", __LINE__);
    make_negative(args_.noise_floor_db, "Warning: Specified noise floor was positive.", __LINE__);
    noise_floor_ = db_to_linear(args_.noise_floor_db);
    peak_output_ = db_to_linear(args_.peak_output_db);
    target_level_ = db_to_linear(args_.target_level_db);
}

void NormalizeOperation::Execute() {
    input_ = open_sound_for_reading(args_.sound_file_in, info_);
    if (!input_) {
        throw ss_sf_openinput_error(args_.sound_file_in);
    }
    if (info_.channels > 2) {
        throw ss_sf_too_many_channels_error(args_.sound_file_in, info_.channels);
    }
    grid_ = make_bin_grid<Step>(info_, args_.bin_size_ms);
    overall_level_ = InitializeBinArray();
    sf_seek(input_.get(), 0, SEEK_SET);
    if (overall_level_ == 0.0) {
        throw ss_sf_input_silent_error(args_.sound_file_in);
    }
    allocate(pWallGains, static_cast<std::size_t>(grid_.walls), "pWallGains", kSource);
    MainIterationLoop loop(overall_level_, pBin.get(), grid_.bins, noise_floor_, peak_output_,
                           pWallGains.get(), args_.attack_ms / args_.bin_size_ms,
                           args_.release_ms / args_.bin_size_ms, target_level_,
                           args_.fit_tolerance_db);
    loop.Go();
    ApplyGains();
}

double NormalizeOperation::InitializeBinArray() {
    allocate(pBinData, static_cast<std::size_t>(grid_.bin_samples), "pBinData", kSource);
    allocate(pBin, static_cast<std::size_t>(grid_.bins), "pBin", kSource);
    return measure_bins<Step, RmsOfLouderChannel>(
        input_, args_.sound_file_in, info_, grid_, noise_floor_, pBin.get(), pBinData.get(),
        CProgress(progress_range::kNormalizeMeasure.low, progress_range::kNormalizeMeasure.high));
}

void NormalizeOperation::ApplyGains() {
    SF_INFO output_info = info_;
    output_info.format = output_format(info_.format, args_.bit_depth);
    const SoundFile output(args_.sound_file_out, &output_info, true);
    if (!apply_walls(
            input_, output.handle(), args_.sound_file_out, info_.channels, grid_, pWallGains.get(),
            pBinData.get(),
            CProgress(progress_range::kNormalizeApply.low, progress_range::kNormalizeApply.high))) {
        throw ss_sf_io_error(args_.sound_file_out);
    }
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
            std::cerr << "Unknown bit depth: " << bit_depth << std::endl;
            break;
    }
    return (input_format & SF_FORMAT_TYPEMASK) | encoding;
}

void Normalize(const NormalizeArgs& args) {
    NormalizeOperation operation(args);
    operation.Execute();
}

}  // namespace normalize
