#include "leveling/engine/output_gate.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

#include "Common/level.h"
#include "Common/units.h"
#include "leveling/audio/scan.h"
#include "leveling/audio/sound_file.h"
#include "leveling/metadata/mpeg_frames.h"

namespace quorvane {
namespace {

// The target is a level of the louder bins alone, so that the whole stays below it.
constexpr double kHighestAboveTarget_db = 6.0;
constexpr double kUsualTarget_db = -18.0;
constexpr double kUnfitted_db = 100.0;  // off the target by more: the fit had no level at all

void require_length(std::int64_t before, std::int64_t after, int rate_hz) {
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

/** What the file holds: measured as it was written, else what decoding all of it gives. */
Scan scan_of(const std::string& path, const SndfileHandle& file) {
    const LevelFindings* found = levelFindings();
    if (found == nullptr || found->output_frames < 0 || file.frames() != found->output_frames) {
        return scan(path);
    }
    return {found->output_frames, found->output_peak, found->output_rms,
            std::isfinite(found->output_rms)};
}

/** A stream that was cut short has no length in its header, and that of an MP3 may be a guess. */
bool tells_length(const SndfileHandle& file, const std::string& path) {
    if ((file.format() & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG) {
        const auto stream = count_mpeg_frames(path);
        return stream && stream->told;
    }
    return is_known_length(file.frames());
}

void require_no_runaway(const Scan& output) {
    const LevelFindings* found = levelFindings();
    const bool known = found != nullptr && !std::isnan(found->target_level_db);
    const double target_db = known ? found->target_level_db : kUsualTarget_db;
    // A recording of a single bin has no level that could be fitted: its peak alone sets the gain.
    const bool fitted = !known || found->fit_error_db > -kUnfitted_db;
    if (output.peak > kMostEnginePeak ||
        (fitted && output.rms > db_to_linear(target_db + kHighestAboveTarget_db))) {
        throw std::runtime_error(fmt::format(
            "its level ran away, to {:+.1f} dBFS with a peak of {:+.1f} dBFS, so nothing was "
            "written: clicks in quiet passages keep the target level out of reach",
            linear_to_db(output.rms), linear_to_db(output.peak)));
    }
}

}  // namespace

void require_sound_output(const std::string& input, const std::string& output) {
    const SndfileHandle before = open_to_read(input);
    const SndfileHandle after = open_to_read(output);
    require_form_of(after, before.samplerate(), before.channels());
    const Scan scanned = scan_of(output, after);
    require_numbers(scanned);
    require_length(tells_length(before, input) ? before.frames() : scan(input).frames,
                   scanned.frames, before.samplerate());
    require_no_runaway(scanned);
}

}  // namespace quorvane
