#include "Common/apply_gains/ag_common.h"

#include <algorithm>
#include <boost/scoped_array.hpp>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "Common/audio/finite.h"
#include "Common/audio/frame_file.h"
#include "Common/bins/walls.h"
#include "Common/files/series.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
#include "Common/units.h"

namespace apply_gains {

namespace {

/** The largest absolute sample of the file once the gains are applied. */
double find_peak(InputSoundFile& input,
                 const std::vector<double>& gains,
                 int block_frames,
                 double* block) {
    const int channels = input.info().channels;
    FiniteGuard guard(input.path(), input.info());
    double peak = 0.0;
    for (std::size_t i = 0; i + 1 < gains.size(); ++i) {
        check_cancelled();
        const long long frames = input.ReadFrames(block, block_frames);
        guard.check(block, frames * channels);
        apply_ramp(block, frames, channels, gains[i], (gains[i + 1] - gains[i]) / block_frames);
        for (long long sample = 0; sample < frames * channels; ++sample) {
            peak = std::max(peak, std::fabs(block[sample]));
        }
    }
    return peak;
}

void write_leveled(InputSoundFile& input,
                   OutputSoundFile& output,
                   const std::vector<double>& gains,
                   double peak,
                   int block_frames,
                   double* block) {
    const std::size_t blocks = gains.size() - 1;
    CProgress progress(progress_range::kApplyGains.low, progress_range::kApplyGains.high);
    for (std::size_t i = 0; i < blocks; ++i) {
        const long long frames = input.ReadFrames(block, block_frames);
        if (frames == 0) {
            break;
        }
        apply_ramp(block, frames, input.info().channels, gains[i] / peak,
                   (gains[i + 1] / peak - gains[i] / peak) / block_frames);
        output.WriteFrames(block, frames);
        progress.show(blocks < 2 ? 1.0 : static_cast<double>(i) / static_cast<double>(blocks - 1));
    }
}

}  // namespace

void ApplyGains(int blockMilliseconds,
                std::string gainsPath,
                std::string inputPath,
                std::string outputPath) {
    std::vector<double> gains = read_series(gainsPath);
    gains.push_back(0.0);
    InputSoundFile input(inputPath);
    OutputSoundFile output(outputPath, input);
    const int block_frames = ms_to_frames(blockMilliseconds, input.info().samplerate);
    if (block_frames < 1) {
        throw std::runtime_error(inputPath + ": a block of " + std::to_string(blockMilliseconds) +
                                 " ms is shorter than a frame");
    }
    if (gains.size() == 1) {
        return;
    }
    boost::scoped_array<double> block;
    allocate(block, static_cast<std::size_t>(block_frames) * input.info().channels, "block",
             "Common/apply_gains/ag_common");
    double peak = find_peak(input, gains, block_frames, block.get());
    if (peak == 0.0) {
        peak = 1.0;  // nothing but silence: leave it unscaled
    }
    input.Seek(0, SEEK_SET);
    write_leveled(input, output, gains, peak, block_frames, block.get());
}

}  // namespace apply_gains
