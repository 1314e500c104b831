#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "leveling/findings/flat_tops.h"

/*
 * What one reading of a recording leaves for the detectors: some 70 bytes for each tenth of a
 * second, and more only where something rare happens. Every level comes from additions,
 * multiplications and divisions in a fixed order, so that all builds find the same.
 */

namespace quorvane {

constexpr int kSlots = 10;  // of 10 ms in a tenth of a second

constexpr float kNoTonality = -2;

/** A tenth of a second. Powers and means of one or two channels; full scale is 1.0. */
struct Tenth {
    std::array<float, 2> power{};  // mean square of each channel
    std::array<float, 2> mean{};
    float cross = 0;                   // mean of left times right
    std::array<float, 2> speech_db{};  // power above 150 Hz of each half, both channels together
    std::array<std::uint8_t, kSlots> slot_levels{};  // of 10 ms, half dB above -120 dB
    // -1 to 1: how much the spectrum's lines stay from the tenth before; not of loud tenths.
    float tonality = kNoTonality;
};

/** What is below 1 kHz, of a window of a third to half a second. Powers. */
struct LowWindow {
    float time_s = 0;
    float rumble = 0;               // 8 to 40 Hz
    float voice = 0;                // 70 to 500 Hz without the mains frequencies
    std::array<float, 2> hum{};     // at 50 and 60 Hz and their multiples up to the sixth
    std::array<float, 2> beside{};  // the same width beside these
};

/** A place where samples stop or jump. */
struct Break {
    float from_s = 0;
    float to_s = 0;
    float size = 0;  // zeros: the smaller one of the peaks on both sides; a jump: its height
    bool is_jump = false;
};

struct SoundProfile {
    int sample_rate_hz = 0;
    std::int64_t tenth_frames = 1;
    int channels = 0;  // that were looked at, 1 or 2
    std::int64_t frames = 0;
    std::vector<Tenth> tenths;  // whole ones
    std::vector<LowWindow> lows;
    std::vector<Break> breaks;
    std::vector<FlatTops> tops;  // of each channel, upper and lower

    double tenth_s() const { return static_cast<double>(tenth_frames) / sample_rate_hz; }

    /** The profile of a later part of the recording. */
    void append(const SoundProfile& later);
};

}  // namespace quorvane
