#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "Common/level.h"
#include "Common/normalize/normalize.h"
#include "Common/stream/helper_thread.h"
#include "Common/stream/pump.h"
#include "leveling/engine/hooks.h"
#include "tests/support/engine_switches.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

/*
 * What holds for every recording, whatever is in it.
 */

namespace {

class Reliability : public testing::Test {
  protected:
    Reliability() {
        hooks::use_temporary_directory(temporary.path() + "/");
        levelCollectFindings(1);
    }

    Signal level(const Signal& input, int format = kWav16) {
        write_sound(in, input, format);
        const int result = call(
            [](int argc, const char** argv) {
                return levelMain(argc, const_cast<char**>(argv), "", nullptr, nullptr);
            },
            {"", "--input-file", in, "--output-file", out});
        EXPECT_EQ(0, result);
        return read_sound(out);
    }

    const EngineSwitches switches;
    TempDir temporary;
    TempDir dir;
    std::string in = dir / "in.wav";
    std::string out = dir / "out.wav";
    CapturedOutput captured;
};

TEST_F(Reliability, NoRecordingRunsAwayWhereTheTargetMayBeLowered) {
    struct Row {
        signals::Knocks knocks;
        int rate_hz;
        bool lowered;
    };

    const Row rows[] = {
        {{-12, -18, 0.5, 1.0, 1, false, 26}, 16000, true},
        {{-12, -18, 0.5, 1.0, 1, false, 26}, 44100, true},
        {{-8, -16, 0.5, 2.2, 2, false, 22}, 44100, true},
        {{-34, -8, 0.7, 0.3, 2, true, 24}, 16000, true},
        {{-34, -8, 0.7, 0.3, 2, true, 24}, 96000, true},
        {{-34, -8, 0.7, 0.0, 0, true, 24}, 8000, false},
        {{-20, -6, 0.3, 1.0, 2, true, 3}, 16000, false},
    };
    for (const Row& row : rows) {
        for (const int format : {kWav16, kWavFloat}) {
            SCOPED_TRACE(testing::Message() << row.knocks.seed << " at " << row.rate_hz << " Hz, "
                                            << (format == kWav16 ? "16 bit" : "float"));
            const Signal input = signals::knocked_speech(row.knocks, row.rate_hz);
            levelLowerTarget(0);
            const Signal as_ever = level(input, format);
            const LevelFindings before = *levelFindings();
            EXPECT_EQ(0.0, before.target_lowered_db);
            EXPECT_EQ(format == kWav16 && row.lowered, before.held_samples > 0);
            EXPECT_EQ(row.lowered, peak_of(as_ever) >= 32767.0 / 32768.0);

            levelLowerTarget(1);
            const Signal lowered = level(input, format);
            const LevelFindings& after = *levelFindings();
            EXPECT_EQ(row.lowered, after.target_lowered_db > 0.0);
            EXPECT_EQ(-18.0 - after.target_lowered_db, after.target_level_db);
            EXPECT_LE(std::fabs(after.fit_error_db), 0.01);
            EXPECT_EQ(0, after.held_samples);
            EXPECT_LE(peak_of(lowered), 1.0);
            EXPECT_EQ(!row.lowered, as_ever.samples == lowered.samples);
        }
    }
}

TEST_F(Reliability, ALoweredTargetIsTheFirstThatFits) {
    // A peak in every bin keeps -18 dB out of reach, and the quiet half second at the end follows
    // the gain wherever it runs.
    Signal input = signals::join(
        {signals::square(0.02, 16000 * 10, 16000), signals::square(0.001, 8000, 16000)});
    for (std::size_t i = 400; i < 160000; i += 800) {
        input.samples[i] = 0.9;
    }
    write_sound(in, input);
    const auto normalize_to = [this](const std::string& target, normalize::FitFailure on_failure) {
        normalize::FitResult fit;
        EXPECT_EQ(0, call(
                         [&](int argc, const char** argv) {
                             return normalize::run_normalize(argc, argv, fit, on_failure);
                         },
                         {"normalize", "-l", target, in, out}));
        return fit;
    };
    const normalize::FitResult ran_away = normalize_to("-18", normalize::FitFailure::kStand);
    EXPECT_FALSE(ran_away.within_tolerance);
    EXPECT_EQ(-18.0, ran_away.target_db);

    const normalize::FitResult lowered = normalize_to("-18", normalize::FitFailure::kLowerTarget);
    const std::string bytes = read_text(out);
    EXPECT_TRUE(lowered.within_tolerance);
    EXPECT_GT(lowered.lowered_by_db, 0.0);
    normalize_to(std::to_string(lowered.target_db), normalize::FitFailure::kStand);
    EXPECT_EQ(bytes, read_text(out));
    EXPECT_FALSE(
        normalize_to(std::to_string(lowered.target_db + 0.5), normalize::FitFailure::kStand)
            .within_tolerance);
}

/** A recording of two voices that is another one for each seed. */
Signal two_voices(unsigned seed, int rate_hz) {
    const double whisper_db = -4.0 * seed;
    Signal left = signals::knocked_speech({-12, whisper_db, 0, 0, 0, false, seed}, rate_hz);
    Signal right = signals::knocked_speech({-30, 9, 0, 0, 0, false, seed + 50}, rate_hz);
    const auto most = std::min(left.samples.size(), right.samples.size());
    left.samples.resize(most);
    right.samples.resize(most);
    return signals::stereo(left, right);
}

TEST_F(Reliability, WhatIsDoneToARecordingShowsInItsResult) {
    for (const auto& [seed, rate_hz] : {std::pair{1U, 16000}, {2U, 8000}, {3U, 22050}}) {
        SCOPED_TRACE(seed);
        const Signal input = two_voices(seed, rate_hz);
        const Signal output = level(input, kWavFloat);
        EXPECT_EQ(input.frames(), output.frames());
        // The ceiling, and half of the last of a float's 24 bits.
        EXPECT_LE(peak_of(output), std::pow(10.0, -1.0 / 20.0) * (1.0 + std::ldexp(1.0, -24)));

        Signal swapped = input;
        Signal inverted = input;
        for (std::size_t i = 0; i < input.samples.size(); ++i) {
            swapped.samples[i] = input.samples[i ^ 1];
            inverted.samples[i] = -input.samples[i];
        }
        swapped = level(swapped, kWavFloat);
        inverted = level(inverted, kWavFloat);
        for (std::size_t i = 0; i < output.samples.size(); ++i) {
            ASSERT_TRUE(std::isfinite(output.samples[i])) << i;
            // Sums over both channels differ in their last bit with the order, and with them the
            // last of the six digits in which a gain is handed on.
            ASSERT_NEAR(output.samples[i], swapped.samples[i ^ 1],
                        1e-5 * std::fabs(output.samples[i]))
                << i;
            ASSERT_EQ(output.samples[i], -inverted.samples[i]) << i;
        }
    }
}

TEST_F(Reliability, BlocksAndThreadsLeaveNoTrace) {
    using stream::HelperThread;
    const HelperThread::Help usual =
        HelperThread::is_used() ? HelperThread::Help::kHelped : HelperThread::Help::kAlone;

    struct Row {
        HelperThread::Help help;
        int block_samples;
    };

    const Row rows[] = {{HelperThread::Help::kAlone, stream::kBlockSamples},
                        {HelperThread::Help::kHelped, stream::kBlockSamples},
                        {HelperThread::Help::kHelped, 1},
                        {HelperThread::Help::kAlone, 4801},
                        {HelperThread::Help::kHelped, 1 << 20}};
    for (const int format : {kWavFloat, SF_FORMAT_FLAC | SF_FORMAT_PCM_16}) {
        const Signal input = two_voices(4, 8000);
        level(input, format);
        const std::string bytes = read_text(out);
        for (const Row& row : rows) {
            HelperThread::use(row.help);
            stream::use_block_samples(row.block_samples);
            level(input, format);
            EXPECT_TRUE(bytes == read_text(out)) << static_cast<int>(row.help) << ", blocks of "
                                                 << row.block_samples << ", format " << format;
        }
    }
    HelperThread::use(usual);
    stream::use_block_samples(stream::kBlockSamples);
}

}  // namespace
