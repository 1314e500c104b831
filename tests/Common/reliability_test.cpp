#include <gmock/gmock.h>

#include <cmath>

#include "Common/level.h"
#include "Common/normalize/normalize.h"
#include "cli/engine/hooks.h"
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

    ~Reliability() override {
        levelLowerTarget(0);
        levelCollectFindings(0);
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
    const auto normalize_to = [this](const std::string& target, normalize::Miss miss) {
        normalize::FitResult fit;
        EXPECT_EQ(0, call(
                         [&](int argc, const char** argv) {
                             return normalize::run_normalize(argc, argv, fit, miss);
                         },
                         {"normalize", "-l", target, in, out}));
        return fit;
    };
    const normalize::FitResult ran_away = normalize_to("-18", normalize::Miss::kStand);
    EXPECT_FALSE(ran_away.within_tolerance);
    EXPECT_EQ(-18.0, ran_away.target_db);

    const normalize::FitResult lowered = normalize_to("-18", normalize::Miss::kLowerTarget);
    const std::string bytes = read_text(out);
    EXPECT_TRUE(lowered.within_tolerance);
    EXPECT_GT(lowered.lowered_by_db, 0.0);
    normalize_to(std::to_string(lowered.target_db), normalize::Miss::kStand);
    EXPECT_EQ(bytes, read_text(out));
    EXPECT_FALSE(normalize_to(std::to_string(lowered.target_db + 0.5), normalize::Miss::kStand)
                     .within_tolerance);
}

TEST_F(Reliability, WhatIsDoneToARecordingShowsInItsResult) {
    const Signal left = signals::speech(9.0, 16000);
    Signal right = signals::sine(0.2, 300.0, 9.0, 16000);
    const Signal input = signals::stereo(left, right);
    const Signal output = level(input, kWavFloat);
    EXPECT_EQ(output.samples, level(input, kWavFloat).samples) << "a second run";
    EXPECT_EQ(input.frames(), output.frames());
    EXPECT_LE(peak_of(output), std::pow(10.0, -1.0 / 20.0) + 1e-6);

    const Signal swapped = level(signals::stereo(right, left), kWavFloat);
    Signal inverted = input;
    for (double& sample : inverted.samples) {
        sample = -sample;
    }
    inverted = level(inverted, kWavFloat);
    for (std::size_t i = 0; i < output.samples.size(); ++i) {
        ASSERT_TRUE(std::isfinite(output.samples[i])) << i;
        // Sums over both channels differ in their last bit with the order.
        ASSERT_NEAR(output.samples[i], swapped.samples[i ^ 1], 1e-6) << i;
        ASSERT_EQ(output.samples[i], -inverted.samples[i]) << i;
    }
}

}  // namespace
