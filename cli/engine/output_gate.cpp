#include "cli/engine/output_gate.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "Common/level.h"
#include "Common/units.h"
#include "cli/audio/sound_file.h"

namespace cli {
namespace {

constexpr sf_count_t kBlockFrames = 8192;
// Quiet bins are not limited, so that a click in a pause may pass the ceiling in a float file. What
// passes full scale by more than this is no click: the level has run away.
constexpr double kHighestPeak = 2.0;
constexpr double kMostFitError_db = 6.0;

/** Reads to the end; returns the frames that are there, peak receives the largest sample. */
sf_count_t read_through(SndfileHandle& file, double& peak) {
    std::vector<double> block(static_cast<std::size_t>(kBlockFrames * file.channels()));
    sf_count_t frames = 0;
    for (sf_count_t got = 0; (got = file.readf(block.data(), kBlockFrames)) > 0; frames += got) {
        for (sf_count_t i = 0; i < got * file.channels(); ++i) {
            const double sample = std::fabs(block[static_cast<std::size_t>(i)]);
            if (!std::isfinite(sample)) {
                throw std::runtime_error("the leveled file holds samples that are no numbers");
            }
            peak = std::max(peak, sample);
        }
    }
    if (file.error() != SF_ERR_NO_ERROR) {
        throw std::runtime_error(
            fmt::format("the leveled file cannot be read back: {}", file.strError()));
    }
    return frames;
}

void require_length(sf_count_t before, sf_count_t after, int rate_hz) {
    if (before == after) {
        return;
    }
    const double rate = rate_hz;
    throw std::runtime_error(fmt::format(
        "the engine left it {:.2f} s {} than the input ({:.2f} s of {:.2f} s), so nothing was "
        "written; a passage below the noise threshold has this effect (a lower "
        "--calc-rms-floor-noise_threshold may help), and a --bin-size other than 50",
        static_cast<double>(std::abs(before - after)) / rate, after < before ? "shorter" : "longer",
        static_cast<double>(after) / rate, static_cast<double>(before) / rate));
}

void require_no_runaway(double peak) {
    const LevelFindings* found = levelFindings();
    if (peak > kHighestPeak || (found != nullptr && found->fit_error_db > kMostFitError_db)) {
        throw std::runtime_error(
            fmt::format("its level ran away, to a peak of {:+.1f} dBFS, so nothing was written: "
                        "clicks in quiet "
                        "passages keep the target level out of reach",
                        linear_to_db(peak)));
    }
}

}  // namespace

void require_sound_output(const std::string& input, const std::string& output) {
    const SndfileHandle before = open_to_read(input);
    SndfileHandle after = open_to_read(output);
    if (before.samplerate() != after.samplerate() || before.channels() != after.channels()) {
        throw std::runtime_error("the leveled file does not have the format of its input");
    }
    double peak = 0.0;
    require_length(before.frames(), read_through(after, peak), before.samplerate());
    require_no_runaway(peak);
}

}  // namespace cli
