#pragma once

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

/**
 * Writes two tracks of one talk into a folder, host.wav and guest.wav: two voices in turns of four
 * seconds, 16 kHz, each on its track with the other one 20 dB lower and 10 ms later, and noise.
 * The guest's microphone is set 16 dB lower.
 */
inline void write_talk(const std::string& folder, int turns = 12, std::uint32_t seed = 5) {
    constexpr int kRate = 16000;
    constexpr int kTurn = 4 * kRate;
    constexpr long long kLate = 160;
    std::filesystem::create_directories(folder);
    const Signal voice = signals::speech(4, kRate);  // of one level
    const auto source = [&](int who, long long frame) {
        const bool is_turn = (frame / kTurn) % 2 == who;
        return frame >= 0 && is_turn ? voice.samples[static_cast<std::size_t>(frame % kTurn)] : 0.0;
    };
    std::mt19937 random(seed);  // its numbers are the same everywhere
    for (int track = 0; track < 2; ++track) {
        const double gain = track == 0 ? 0.5 : 0.08;
        const Signal signal = signals::from(
            [&](long long frame) {
                const double hiss = static_cast<double>(random()) / 4294967296.0 - 0.5;
                return gain * (source(track, frame) + 0.1 * source(1 - track, frame - kLate)) +
                       0.002 * hiss;
            },
            static_cast<long long>(turns) * kTurn, kRate);
        write_sound(folder + (track == 0 ? "/host.wav" : "/guest.wav"), signal,
                    SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    }
}
