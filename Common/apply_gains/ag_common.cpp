#include "Common/apply_gains/ag_common.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Common/audio/frame_file.h"
#include "Common/bins/measured_bins.h"
#include "Common/bins/peak.h"
#include "Common/bins/walls.h"
#include "Common/files/same_file.h"
#include "Common/files/series.h"
#include "Common/reporting/failure.h"
#include "Common/stream/pump.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"
#include "Common/units.h"

/*
 * Two passes over the audio, or one and a few blocks: the first finds the largest sample that the
 * gains would give, the second applies the gains divided by it. Nothing is kept in between. The
 * first pass runs the very same ramps into a meter, so that what it measures is to the last bit
 * what the second would write before the scaling. Scaling the walls and not the samples costs
 * nothing, at the price of a rounding: the largest sample comes out at 1.0 or next to it.
 *
 * The series holds a gain per block, the ramps need one at the end of the last block, too: a gain
 * of 0 is appended. Recordings that end on a block's end have a gain to spare (see
 * calculate_gains), and do not fade; others fade over what they have of their last block.
 */
namespace apply_gains {

namespace {

constexpr int kMostSingleBlocks = 32;

/** The largest absolute sample, of any channel. */
class PeakMeter : public stream::Receiver {
  public:
    explicit PeakMeter(int channels) : channels_(channels) {}

    void process(double* samples, long long frames) override {
        peak_ = peak_of(samples, frames * channels_, peak_);
    }

    double peak() const { return peak_; }

  private:
    int channels_;
    double peak_ = 0.0;
};

[[noreturn]] void fail_read(const SoundHandle& handle, const std::string& path) {
    throw sf_read_err(handle, path);
}

[[noreturn]] void fail_write(const WriteFailure& failure) {
    throw sf_write_err(failure.handle, failure.path, failure.reason);
}

/** The largest sample that a block's ramp gives. */
double peak_of_block(SoundSource& input, const BinGrid& blocks, const double* gains, int block) {
    if (!input.seek(static_cast<long long>(block) * blocks.bin_frames)) {
        throw std::runtime_error(input.name() + ": cannot be read a second time");
    }
    PeakMeter meter(input.info().channels);
    WallRamps ramp(input.info().channels, {blocks.bin_frames, 1, 2}, gains + block, meter);
    stream::pump(input, ramp, blocks.bin_frames);
    return meter.peak();
}

/**
 * The largest sample of the ramps over blocks whose own peaks are known. None gives more than its
 * peak times the larger of its two gains, so that few need be read: those that could beat the
 * largest sample found so far. Negative where too many could.
 */
double peak_of_few(SoundSource& input,
                   const BinGrid& blocks,
                   const double* gains,
                   const MeasuredBins& measured) {
    constexpr double kRounding = 1e-9;  // of a ramp's sums, and far more than that
    const int count = std::min(blocks.bins, measured.grid.bins);
    const auto bound = [&](int block) {
        const double gain = std::max(std::fabs(gains[block]), std::fabs(gains[block + 1]));
        return measured.bins[block].peak * gain * (1.0 + kRounding);
    };
    int highest = 0;
    for (int block = 0; block < count; ++block) {
        // Values that are not finite need a pass in the blocks' order.
        if (!std::isfinite(bound(block))) {
            return -1.0;
        }
        highest = bound(block) > bound(highest) ? block : highest;
    }
    double peak = peak_of_block(input, blocks, gains, highest);
    int promising = 0;
    for (int block = 0; block < count; ++block) {
        promising += static_cast<int>(bound(block) > peak);
    }
    if (promising > kMostSingleBlocks + count / 32) {
        return -1.0;
    }
    for (int block = 0; block < count; ++block) {
        if (bound(block) > peak) {
            peak = std::max(peak, peak_of_block(input, blocks, gains, block));
        }
    }
    return peak;
}

/** The largest sample that the gains would give. Leaves the input's position undefined. */
double ramped_peak(SoundSource& input, const BinGrid& blocks, const double* gains) {
    const MeasuredBins* const measured = MeasuredRecordings::of_this_thread().find(
        input.name(), BinKind::kAllSamples, blocks.bin_frames, input.info());
    const double peak = measured == nullptr ? -1.0 : peak_of_few(input, blocks, gains, *measured);
    if (peak >= 0.0) {
        return peak;
    }
    rewind(input);
    PeakMeter meter(input.info().channels);
    WallRamps unscaled(input.info().channels, blocks, gains, meter);
    // What lies behind the last block has no gain and is cut off.
    stream::pump(input, unscaled, static_cast<long long>(blocks.bins) * blocks.bin_frames);
    return meter.peak();
}

/**
 * The gains over the peak: with them the largest sample comes out at 1.0. Where that gives no
 * number, since there is nothing but silence or samples next to zero, they stay as they are.
 */
std::vector<double> scaled_by(std::vector<double> gains, double peak) {
    if (std::all_of(gains.begin(), gains.end(),
                    [peak](double gain) { return std::isfinite(gain / peak); })) {
        for (double& gain : gains) {
            gain /= peak;
        }
    }
    return gains;
}

void note_defect(const std::string& text) {
    reporting::Defect defect;
    defect.kind = reporting::DefectKind::kOther;
    defect.text = text;
    reporting::note_defect(defect);
}

}  // namespace

// NOLINTBEGIN(performance-unnecessary-value-param): the paths are values in the step's contract.
void ApplyGains(int blockMilliseconds,
                std::string gainsPath,
                std::string inputPath,
                std::string outputPath) {
    // NOLINTEND(performance-unnecessary-value-param)
    std::string problem;
    std::vector<double> gains = read_series(gainsPath, &problem);
    if (!problem.empty()) {
        note_defect(problem);
    }
    gains.push_back(0.0);
    require_other_file(gainsPath, outputPath);
    require_other_file(inputPath, outputPath);
    const InputSoundFile input_file(inputPath);
    const OutputSoundFile output_file(outputPath, input_file);
    const SF_INFO info = input_file.info();
    const int block_frames = ms_to_frames(blockMilliseconds, info.samplerate);
    if (block_frames < 0) {
        throw std::runtime_error(inputPath + ": a block of " + std::to_string(blockMilliseconds) +
                                 " ms is shorter than a frame");
    }
    SoundWriter output(output_file.handle(), outputPath, info.channels, std::max(1, block_frames),
                       fail_write);
    const BinGrid blocks{block_frames, static_cast<int>(gains.size()) - 1,
                         static_cast<int>(gains.size())};
    // Without gains the output is a header without audio, as in earlier versions.
    if (blocks.bins == 0 || block_frames == 0) {
        if (block_frames == 0) {
            note_defect(inputPath + ": a block of " + std::to_string(blockMilliseconds) +
                        " ms is shorter than a frame, so nothing was leveled");
        }
        output.finish();
        return;
    }
    const long long frames = static_cast<long long>(blocks.bins) * block_frames;
    SoundSource input(input_file.handle(), inputPath, info, fail_read,
                      SoundSource::FailWhen::kNothingWasRead);
    const double peak = ramped_peak(input, blocks, gains.data());
    const std::vector<double> walls = scaled_by(std::move(gains), peak);
    MeasuredRecordings::of_this_thread().forget(inputPath);
    rewind(input);
    stream::pump_parts(input, output, wall_ramps(info.channels, blocks, walls.data()),
                       blocks.pacer(progress_range::kApplyGains), frames);
}

}  // namespace apply_gains
