#include "leveling/metadata/broadcast_chunk.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <limits>

#include "Common/audio/sample_codec.h"
#include "Common/version.h"

/*
 * The loudness fields of a version 2 broadcast chunk are hundredths of LUFS, LU and dBTP, 0x7FFF
 * for "not set". The coding history, lines of ASCII with CR and LF, fills the chunk from its fixed
 * part to the end (EBU Tech 3285 and R 98).
 */

namespace quorvane {
namespace {

// Offsets in the chunk, bytes.
constexpr std::size_t kVersionPlace = 346;
constexpr std::size_t kLoudnessPlace = 412;
constexpr std::size_t kHistoryPlace = 602;
constexpr std::uint64_t kNotSet = 0x7FFF;

enum Field { kIntegrated, kRange, kTruePeak, kMomentary, kShortTerm, kFields };

/** NaN stands for what is not known. */
std::array<double, kFields> field_values(const Loudness* loudness) {
    std::array<double, kFields> values{};
    values.fill(std::numeric_limits<double>::quiet_NaN());
    if (loudness) {
        values[kIntegrated] = loudness->integrated_lufs;
        values[kRange] = loudness->range_lu;
        values[kTruePeak] = loudness->true_peak_dbtp;
        for (double value : loudness->short_term_lufs.values) {
            if (std::isfinite(value)) {
                values[kShortTerm] = std::fmax(values[kShortTerm], value);
            }
        }
    }
    return values;
}

void put_loudness(Bytes& chunk, const Loudness* loudness) {
    std::array<double, kFields> values = field_values(loudness);
    if (loudness && get_number(chunk, kLoudnessPlace + std::size_t{2} * kMomentary, 2,
                               ByteOrder::Little) != kNotSet) {
        values[kMomentary] = loudness->greatest_momentary_lufs;
    }
    for (std::size_t i = 0; i < kFields; ++i) {
        const bool known = std::isfinite(values[i]) && std::fabs(values[i]) < 320;
        put_number(chunk, kLoudnessPlace + 2 * i, 2, ByteOrder::Little,
                   known ? static_cast<std::uint64_t>(std::llround(values[i] * 100)) : kNotSet);
    }
}

/** "A=PCM,F=48000,W=24,M=stereo,T=quorvane 4.0.0, leveled". */
void add_history(Bytes& chunk, const SndfileHandle& file) {
    const std::size_t bits = 8 * linear_sample_bytes(file.format());
    const std::string line = fmt::format(
        "A={},F={},{}M={},T=quorvane {}, leveled\r\n", bits ? "PCM" : "", file.samplerate(),
        bits ? fmt::format("W={},", bits) : "", file.channels() == 1 ? "mono" : "stereo", kVersion);
    // Zeros fill the history up; the new line follows its last one.
    while (chunk.size() > kHistoryPlace && chunk.back() == 0) {
        chunk.pop_back();
    }
    if (chunk.size() > kHistoryPlace && chunk.back() != '\n') {
        chunk.insert(chunk.end(), {'\r', '\n'});
    }
    chunk.insert(chunk.end(), line.begin(), line.end());
    // libsndfile does not skip the byte behind a `bext` chunk of odd size in RF64.
    chunk.resize(chunk.size() + chunk.size() % 2, 0);
}

}  // namespace

bool tells_loudness(const Bytes& chunk) {
    constexpr std::size_t kFieldBytes = 2;
    constexpr std::size_t kEnd = kLoudnessPlace + kFieldBytes * kFields;
    return chunk.size() >= kEnd && get_number(chunk, kVersionPlace, 2, ByteOrder::Little) >= 2;
}

Bytes with_new_loudness(Bytes chunk, const LoudnessSource& loudness, const SndfileHandle& audio) {
    if (tells_loudness(chunk)) {
        put_loudness(chunk, loudness());
    }
    if (chunk.size() >= kHistoryPlace) {
        add_history(chunk, audio);
    }
    return chunk;
}

}  // namespace quorvane
