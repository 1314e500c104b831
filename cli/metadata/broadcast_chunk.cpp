#include "cli/metadata/broadcast_chunk.h"

#include <cmath>
#include <limits>

/*
 * The loudness fields of a version 2 broadcast chunk are hundredths of LUFS, LU and dBTP, 0x7FFF
 * for "not set" (EBU Tech 3285).
 */

namespace cli {

void refresh_broadcast_loudness(Bytes& chunk, const Loudness* loudness) {
    constexpr std::size_t kVersion = 346;
    constexpr std::size_t kLoudness = 412;
    constexpr std::uint64_t kNotSet = 0x7FFF;
    constexpr std::size_t kFields = 5;  // integrated, range, true peak, momentary, short-term
    if (chunk.size() < kLoudness + 2 * kFields || get_number(chunk, kVersion, 2, false) < 2) {
        return;
    }
    constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
    double values[kFields] = {kUnknown, kUnknown, kUnknown, kUnknown, kUnknown};
    if (loudness) {
        values[0] = loudness->integrated_lufs;
        values[1] = loudness->range_lu;
        values[2] = loudness->true_peak_dbtp;
        for (double value : loudness->short_term_lufs.values) {
            if (std::isfinite(value)) {
                values[4] = std::fmax(values[4], value);
            }
        }
    }
    for (std::size_t i = 0; i < kFields; ++i) {
        const bool known = std::isfinite(values[i]) && std::fabs(values[i]) < 320;
        put_number(chunk, kLoudness + 2 * i, 2, false,
                   known ? static_cast<std::uint64_t>(std::llround(values[i] * 100)) : kNotSet);
    }
}

}  // namespace cli
