#include "leveling/audio/dither.h"

#include <gmock/gmock.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "tests/support/signals.h"

using testing::DoubleNear;
using testing::Each;

namespace quorvane {
namespace {

constexpr int kRate = 16000;
constexpr std::size_t kSilence = 800;  // frames of 50 ms
constexpr double kStep = 1.0 / 32768;

std::vector<std::int16_t> dithered(const Signal& signal,
                                   const Signal& source,
                                   std::size_t block = 100000,
                                   int bits = 16) {
    Dither dither(signal.channels, signal.sample_rate_hz, bits);
    std::vector<std::int16_t> out;
    const auto frames = static_cast<std::size_t>(signal.frames());
    for (std::size_t at = 0; at < frames; at += block) {
        const std::size_t first = at * static_cast<std::size_t>(signal.channels);
        dither.process(signal.samples.data() + first, source.samples.data() + first,
                       std::min(block, frames - at), out);
    }
    dither.finish(out);
    return out;
}

/** Rms of the error, full scale 1. */
double error_of(const std::vector<std::int16_t>& out, const Signal& signal) {
    double sum = 0;
    for (std::size_t i = 0; i < out.size(); ++i) {
        const double error = out[i] * kStep - signal.samples[i];
        sum += error * error;
    }
    return std::sqrt(sum / static_cast<double>(out.size()));
}

TEST(Dither, TheErrorIsHalfAStepWhateverTheSignal) {
    // Uniform rounding 1/12 and triangular noise 1/6 make 1/4 of a step squared: -96.3 dBFS.
    const Signal signals[] = {signals::sine(0.5, 997, 4, kRate), signals::speech(4, kRate, 2),
                              signals::sine(1.2 * kStep, 300, 4, kRate),
                              signals::from([](long long) { return 0.3 * kStep; }, 64000, kRate)};
    for (const Signal& signal : signals) {
        const auto out = dithered(signal, signal);
        ASSERT_EQ(signal.samples.size(), out.size());
        EXPECT_THAT(error_of(out, signal) / kStep, DoubleNear(0.5, 0.01));
    }
}

TEST(Dither, WhatIsFainterThanAStepKeepsItsLevel) {
    // -100 dBFS: a third of a step, which rounding alone would turn into silence.
    const Signal sine = signals::sine(1e-5, 440, 20, kRate);
    const auto out = dithered(sine, sine);
    double product = 0;
    double power = 0;
    for (std::size_t i = 0; i < out.size(); ++i) {
        product += out[i] * kStep * sine.samples[i];
        power += sine.samples[i] * sine.samples[i];
    }
    EXPECT_THAT(20 * std::log10(product / power), DoubleNear(0, 0.5));
}

TEST(Dither, BlocksDoNotMatterAndChannelsDiffer) {
    const Signal signal =
        signals::join({signals::speech(1, kRate, 2), signals::silence(2000, kRate, 2),
                       signals::speech(1, kRate, 2)});
    const auto whole = dithered(signal, signal);
    for (std::size_t block : {1, 77, 799, 801}) {
        EXPECT_EQ(whole, dithered(signal, signal, block)) << block;
    }
    const Signal flat = signals::from([](long long) { return 0.25; }, 1000, kRate, 2);
    const auto both = dithered(flat, flat);
    int equal = 0;
    for (std::size_t i = 0; i < both.size(); i += 2) {
        equal += both[i] == both[i + 1] ? 1 : 0;
    }
    EXPECT_LT(equal, 700)
        << "3 of 4 values keep the step: (3 / 4)^2 + 2 (1 / 8)^2 of them are equal";
}

TEST(Dither, SilenceOf50MillisecondsStaysZero) {
    struct Row {
        const char* name;
        std::size_t begin, frames;  // of the silence
        bool zero;
    };

    const Row rows[] = {{"at the start", 0, kSilence, true},
                        {"between", 3000, kSilence, true},
                        {"long", 3000, 3 * kSilence, true},
                        {"at the end", 8000 - kSilence, kSilence, true},
                        {"too short", 3000, kSilence - 1, false}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Signal signal = signals::sine(0.1, 1234.5, 0.5, kRate, 2);
        for (std::size_t i = row.begin; i < row.begin + row.frames; ++i) {
            signal.samples[2 * i] = 0;  // the other channel goes on
        }
        const auto out = dithered(signal, signal, 333);
        std::vector<std::int16_t> silent;
        std::vector<std::int16_t> other;
        for (std::size_t i = row.begin; i < row.begin + row.frames; ++i) {
            silent.push_back(out[2 * i]);
            other.push_back(out[2 * i + 1]);
        }
        EXPECT_EQ(row.zero, std::count(silent.begin(), silent.end(), 0) ==
                                static_cast<std::ptrdiff_t>(row.frames));
        EXPECT_LT(std::count(other.begin(), other.end(), 0), 100);
    }
}

TEST(Dither, ASilenceLeavesTheOtherChannelsSamplesAsTheyAre) {
    // Frames near a long silence are rounded one by one, others in vectors.
    const Signal all = signals::speech(1, kRate, 2);
    Signal partly = all;
    for (std::size_t i = 1000; i < 7000; ++i) {
        partly.samples[2 * i] = i % 1500 < 200 ? partly.samples[2 * i] : 0;
    }
    const auto expected = dithered(all, all);
    for (const std::size_t block : {100000, 501, 64}) {
        const auto out = dithered(partly, partly, block);
        for (std::size_t i = 1; i < out.size(); i += 2) {
            ASSERT_EQ(expected[i], out[i]) << i << ", blocks of " << block;
        }
    }
}

TEST(Dither, OverTheSourcesSilenceAFiltersTailEndsWhereItRoundsToZero) {
    const Signal silent = signals::silence(4000, kRate);
    const Signal tail = signals::from(
        [](long long i) { return 0.01 * std::exp(-0.01 * static_cast<double>(i)); }, 4000, kRate);
    // 0.01 exp(-0.01 i) is half a step at i = 100 ln(0.02 / step) = 648.
    const auto out = dithered(tail, silent);
    EXPECT_GT(out[300], 10);
    EXPECT_THAT(std::vector<std::int16_t>(out.begin() + 649, out.end()), Each(0));
}

TEST(Dither, EightBitsStandInTheUpperByteAndNothingWraps) {
    const Signal loud = signals::sine(1.5, 100, 0.5, kRate);
    for (const std::int16_t value : dithered(loud, loud, 1000, 8)) {
        ASSERT_EQ(0, value & 0xFF);
    }
    const auto out = dithered(loud, loud);
    EXPECT_EQ(32767, *std::max_element(out.begin(), out.end()));
    EXPECT_EQ(-32768, *std::min_element(out.begin(), out.end()));
    EXPECT_EQ(8, dithered_bits(SF_FORMAT_WAV | SF_FORMAT_PCM_U8));
    EXPECT_EQ(0, dithered_bits(SF_FORMAT_FLAC | SF_FORMAT_PCM_24));
}

}  // namespace
}  // namespace quorvane
