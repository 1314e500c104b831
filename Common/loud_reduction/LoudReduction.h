#pragma once

#include <algorithm>
#include <boost/scoped_array.hpp>
#include <cstdio>
#include <memory>

#include "Common/bins/Bin.h"
#include "Common/bins/BinGrid.h"
#include "Common/bins/fail_write.h"
#include "Common/bins/measure.h"
#include "Common/bins/walls.h"
#include "Common/loud_reduction/LoudReductionArgs.h"
#include "Common/reporting/findings.h"
#include "Common/ss_util.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"
#include "Common/units.h"

namespace level_engine {

/*
 * Two of the ten steps do the same work and differ in what they compare with the threshold: first
 * the peaks of bins, 15 dB above the mean, then their RMS, 3 dB above it. The order matters: a door
 * that slams is a peak in one bin, and once it is down it no longer counts for the level of its
 * passage. Every gain lies on a wall (BinGrid.h), the same for all channels, so the stereo image
 * stays put.
 */

/**
 * Lowers the bins that are too far above the mean level of a file's bins that are not quiet, then
 * scales the whole so that the loudest peak left reaches full scale. Where the run has the input's
 * bins from its writing (MeasuredRecordings), the measuring pass takes them.
 *
 * What differs between the two steps that do this is their Rule:
 *     Step            the step's tag, for its errors
 *     RmsRule         how a bin's RMS is taken
 *     level(bin)      what is compared with the threshold: the bin's peak or its RMS, linear
 *     kSource         the source path in allocation messages
 *     kMeasure, kApply  progress ranges
 *     kFoundLevel, kFoundThreshold  where the findings keep the two levels, dB
 *     warn(text)      says that a setting was changed
 */
template <class Rule>
class LoudReduction {
  public:
    using Step = typename Rule::Step;

    explicit LoudReduction(const LoudReductionArgs& args) : args_(args) {
        if (args_.noise_floor_db > 0.0) {
            args_.noise_floor_db = -args_.noise_floor_db;
            char text[128];
            std::snprintf(text, sizeof text,
                          "Warning: Specified noise floor was positive.  Value has been changed to "
                          "%.2lf.",
                          args_.noise_floor_db);
            Rule::warn(text);
        }
        noise_floor_ = db_to_linear(args_.noise_floor_db);
        level_diff_ = db_to_linear(args_.level_diff_db);
    }

    /** Measures, computes the gains and applies them. Throws the step's errors. */
    void Execute() {
        SF_INFO info{};
        const SoundHandle handle = open_sound_for_reading(args_.sound_file_in, info);
        if (!handle) {
            throw step_errors::sf_openinput_error<Step>(args_.sound_file_in);
        }
        step_errors::require_known_channels<Step>(args_.sound_file_in, info);
        step_errors::require_other_file<Step>(args_.sound_file_in, args_.sound_file_out);
        input_.reset(new SoundSource(handle, args_.sound_file_in, info));
        grid_ = make_bin_grid<Step>(info, args_.bin_size_ms);
        allocate(pBin, static_cast<std::size_t>(grid_.bins), "pBin", Rule::kSource);
        allocate(pWallGains, static_cast<std::size_t>(grid_.walls), "pWallGains", Rule::kSource);

        mean_rms_ = InitializeBinArray();
        rewind(*input_);
        if (mean_rms_ == 0.0) {
            throw step_errors::sf_input_silent_error<Step>(args_.sound_file_in);
        }
        threshold_ = mean_rms_ * level_diff_;
        findings().*Rule::kFoundLevel = linear_to_db(mean_rms_);
        findings().*Rule::kFoundThreshold = linear_to_db(threshold_);
        // All gains are known before the first sample is changed: the audio is read twice, not
        // held.
        AdjustGains();
        SmoothGains(1.0);
        PeakNormalize(1.0);
        pBin.reset();  // ten hours of bins are 17 MB
        ApplyGains();
    }

    /** Measures every bin; returns the mean RMS of those above the noise floor, 0 without any. */
    double InitializeBinArray() {
        return measure_bins<Step, typename Rule::RmsRule>(*input_, grid_, noise_floor_, pBin,
                                                          Rule::kMeasure, Rule::kSource);
    }

    void InitializeGains(double g) { std::fill_n(pWallGains.get(), grid_.walls, g); }

    /** Gives each bin its gain; returns the largest peak that is left. */
    double AdjustGains() {
        largest_peak_ = 0.0;
        for (int i = 0; i < grid_.bins; ++i) {
            CBin& bin = pBin[i];
            if (Rule::level(bin) > threshold_) {
                // Down to the threshold and no further: all reduced bins come out equally loud.
                bin.gain = threshold_ / Rule::level(bin);
            }
            largest_peak_ = std::max(largest_peak_, bin.gain * bin.peak);
        }
        return largest_peak_;
    }

    /**
     * Sets the walls: both walls of a reduced bin carry its gain, from which the walls after it
     * rise to g0 over the release and those before it over the attack. Where ramps overlap, the
     * lower gain wins. Each ramp is built by repeated addition of its step.
     */
    void SmoothGains(double g0) {
        InitializeGains(g0);
        const int attack_bins = args_.attack_ms / args_.bin_size_ms;
        const int release_bins = args_.release_ms / args_.bin_size_ms;
        for (int i = 0; i < grid_.bins; ++i) {
            const double bin_gain = pBin[i].gain;
            if (!(bin_gain < g0)) {
                continue;
            }
            // 64 bits: the ramps' lengths come from settings that may be as large as a number gets.
            const long long last =
                std::min<long long>(i + static_cast<long long>(release_bins) + 2, grid_.walls);
            double g = bin_gain;
            for (long long j = i + 1; j < last; ++j) {
                pWallGains[j] = std::min(pWallGains[j], g);
                g += (g0 - bin_gain) / (release_bins + 1LL);
            }
            const long long first =
                std::max<long long>(i - static_cast<long long>(attack_bins) - 1, -1);
            g = bin_gain;
            for (long long j = i; j > first; --j) {
                pWallGains[j] = std::min(pWallGains[j], g);
                g += (g0 - bin_gain) / (attack_bins + 1LL);
            }
        }
    }

    /**
     * Scales the walls so that the largest peak left becomes target. The peak is the one that the
     * bins' own gains leave; a ramp from a neighbour may take it lower still, never higher.
     */
    void PeakNormalize(double target) {
        const double scale = target / largest_peak_;
        for (int i = 0; i < grid_.walls; ++i) {
            pWallGains[i] *= scale;
        }
    }

    void ApplyGains() {
        SF_INFO output_info = input_->info();
        const SoundHandle output = open_sound_for_writing(args_.sound_file_out, output_info);
        if (!output) {
            throw step_errors::sf_openoutput_error<Step>(args_.sound_file_out);
        }
        SoundWriter writer(output, args_.sound_file_out, output_info.channels, grid_.bin_frames,
                           fail_write<Step>);
        stream::pump_parts(
            *input_, writer, wall_ramps(output_info.channels, grid_, pWallGains.get()),
            grid_.pacer(Rule::kApply), stream::kToTheEnd, {"pBinData", Rule::kSource});
    }

  private:
    LoudReductionArgs args_;
    double noise_floor_;
    double level_diff_;
    double threshold_ = 0.0;
    double largest_peak_ = 0.0;
    double mean_rms_ = 0.0;
    std::unique_ptr<SoundSource> input_;
    BinGrid grid_{};
    boost::scoped_array<CBin> pBin;
    boost::scoped_array<double> pWallGains;
};

}  // namespace level_engine

using level_engine::LoudReduction;
