#include "Common/normalize/normalize.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "Common/normalize/MainIterationLoop.h"
#include "tests/support/signals.h"
#include "tests/support/step_test.h"

namespace {

using normalize::MainIterationLoop;
using testing::DoubleNear;
using testing::ElementsAre;
using testing::HasSubstr;

const double kFloor = std::pow(10.0, -44.0 / 20.0);
const double kCeiling = std::pow(10.0, -1.0 / 20.0);

TEST(Secant, MeetsTheTargetOnTheLineAndStaysOnALevelOne) {
    EXPECT_EQ(3.0, normalize::UpdateXEstimate(1.0, 2.0, 10.0, 20.0, 30.0));
    EXPECT_EQ(1.0, normalize::UpdateXEstimate(1.0, 2.0, 10.0, 10.0, 30.0));
}

class Loop : public testing::Test {
  protected:
    std::vector<double> adjusted(double gain, int attack, int release) {
        walls.assign(bins.size() + 1, 0.0);
        MainIterationLoop loop(0.1, bins.data(), static_cast<int>(bins.size()), kFloor, kCeiling,
                               walls.data(), attack, release, 0.125, 0.01);
        loop.FinalizeAndAdjust(gain);
        level_db = loop.EstimateOutputLevel_db();
        return walls;
    }

    std::vector<CBin> bins;
    std::vector<double> walls;
    double level_db = 0.0;
};

TEST_F(Loop, RampsRiseAroundALimitedBinAndTheLowerOneWins) {
    // Bin 2 may have 0.8912509 / 0.5 = 1.7825018 of a gain of 4: d = 2.2174982. Attack 1 bin: half
    // of d before it. Release 2 bins: thirds of d behind it.
    bins.assign(6, {1.0, 0.1, 0.1});
    bins[2].peak = 0.5;
    const double b = 1.7825018;
    const double d = 4 - b;
    EXPECT_THAT(
        adjusted(4.0, 1, 2),
        testing::Pointwise(DoubleNear(1e-6),
                           std::vector<double>{4, b + d / 2, b, b, b + d / 3, b + 2 * d / 3, 4}));
    bins[4].peak = 0.5;
    EXPECT_THAT(adjusted(4.0, 1, 2)[3], DoubleNear(b, 1e-6));
    EXPECT_THAT(adjusted(4.0, 1, 2)[6], DoubleNear(b + d / 3, 1e-6)) << adjusted(4.0, 1, 2)[5];
}

TEST_F(Loop, QuietBinsAreNeverLimited) {
    bins.assign(3, {1.0, 0.9, kFloor});
    EXPECT_EQ(std::vector<double>(4, 3.0), adjusted(3.0, 1, 1));
    EXPECT_EQ(-200.0, level_db) << "and have no loudness";
}

TEST_F(Loop, TheEstimateLeavesTheLastBinOut) {
    // Two bins of RMS 0.1 at gain 2: 20 log10 0.2 = -13.9794 dB, whatever the third holds.
    bins = {{1.0, 0.1, 0.1}, {1.0, 0.1, 0.1}, {1.0, 0.1, 0.4}};
    adjusted(2.0, 0, 0);
    EXPECT_NEAR(-13.9794, level_db, 1e-4);
    bins.resize(1);
    adjusted(2.0, 0, 0);
    EXPECT_EQ(-200.0, level_db);
}

class Normalize : public StepTest {
  protected:
    int run(const Signal& input,
            const std::vector<std::string>& options = {},
            int format = kWavDouble) {
        write_sound(dir / "in.wav", input, format);
        const int result =
            run_step(normalize::_tmain, {"normalize", dir / "in.wav", dir / "out.wav"}, options);
        if (result == 0) {
            output = read_sound(dir / "out.wav");
        }
        return result;
    }

    Signal output;
};

TEST_F(Normalize, BringsASteadySoundToTheTarget) {
    // A square of 0.02 is at -34 dB; 10^(-18/20) = 0.125893.
    ASSERT_EQ(0, run(signals::square(0.02, 4410 * 10)));
    EXPECT_NEAR(0.125893, rms_of(output, 0, 44100), 0.125893 * 0.0012);  // 0.01 dB
    EXPECT_EQ(1.0F, progress.fractions().back());
    ASSERT_EQ(0, run(signals::square(0.02, 4410 * 10), {"-l", "-30"}));
    EXPECT_NEAR(0.0316228, peak_of(output), 0.0316228 * 0.0012);
}

TEST_F(Normalize, HoldsThePeakCeilingAndStillMeetsTheTarget) {
    Signal input = signals::square(0.02, 44100 * 20, 44100);
    input.samples[44100 * 10] = 0.9;
    ASSERT_EQ(0, run(input));
    EXPECT_LE(peak_of(output), kCeiling + 1e-9);
    // Ten seconds from the peak its ramps of 2 s are over.
    EXPECT_GT(rms_of(output, 0, 44100), 2 * rms_of(output, 440000, 442000));
    EXPECT_NEAR(-18.0, 20 * std::log10(rms_of(output, 0, 44100 * 20)), 0.1);
}

TEST_F(Normalize, SaysWhatCameOfTheFit) {
    // 0.02 to 10^(-18 / 20) = 0.1258925: a gain of 6.2946. One sample of 0.2 in a silent bin, whose
    // RMS of 0.2 / sqrt(2205) = 0.0043 is below the floor, is not limited: 16 bits would wrap.
    Signal input = signals::join({signals::square(0.02, 44100), signals::silence(4410)});
    input.samples[45000] = 0.2;
    const auto fit_of = [&](const char* target, int format) {
        normalize::FitResult fit;
        write_sound(dir / "in.wav", input, format);
        const auto entry = [&fit](int argc, const char** argv) {
            return normalize::run_normalize(argc, argv, fit);
        };
        EXPECT_EQ(0,
                  run_step(entry, {"normalize", dir / "in.wav", dir / "out.wav"}, {"-l", target}));
        return fit;
    };
    const normalize::FitResult met = fit_of("-18", kWav16);
    EXPECT_NEAR(6.2946, met.gain, 0.01);
    EXPECT_LE(std::fabs(met.error_db), 0.01);
    EXPECT_TRUE(met.within_tolerance);
    EXPECT_EQ(1, met.held_samples);
    EXPECT_EQ(0, fit_of("-18", kWavDouble).held_samples);

    // 6 dB above full scale, past a ceiling of -1 dB: 7 dB are missing.
    const normalize::FitResult missed = fit_of("6", kWavDouble);
    EXPECT_FALSE(missed.within_tolerance);
    EXPECT_NEAR(-7.0, missed.error_db, 0.1);
}

TEST_F(Normalize, APeakAtTheLowerEndOfARampDoesNotLowerTheTarget) {
    // The gain of 6.3 falls to 0.891 / 0.9 in bin 9, ahead of the peak of 0.9 in bin 10. Bin 9 is
    // silent but for its last sample, 0.2, and so is not limited: 0.2 * 0.99 is not a peak, though
    // 0.2 * 6.3 would be one.
    constexpr std::ptrdiff_t kBinFrames = 2205;
    Signal input = signals::square(0.02, 40 * kBinFrames);
    std::fill_n(input.samples.begin() + 9 * kBinFrames, kBinFrames - 1, 0.0);
    input.samples[10 * kBinFrames - 1] = 0.2;
    input.samples[10 * kBinFrames + 1000] = 0.9;
    write_sound(dir / "in.wav", input, kWav16);
    normalize::FitResult fit;
    const auto entry = [&fit](int argc, const char** argv) {
        return normalize::run_normalize(argc, argv, fit, normalize::FitFailure::kLowerTarget);
    };
    EXPECT_EQ(0, run_step(entry, {"normalize", dir / "in.wav", dir / "out.wav"},
                          {"--attack", "0", "--release", "0"}));
    EXPECT_EQ(0, fit.held_samples);
    EXPECT_EQ(0.0, fit.lowered_by_db);
}

TEST_F(Normalize, OneBinEndsAtGainOne) {
    // Without an estimate the tries alternate between target / level and 1; the tenth is 1.
    const Signal input = signals::square(0.02, 2000);
    ASSERT_EQ(0, run(input));
    EXPECT_EQ(input.samples, output.samples);
}

TEST_F(Normalize, StereoPeaksCountAndBothChannelsGetTheSameGain) {
    const Signal left = signals::square(0.02, 44100);
    Signal right = signals::square(0.2, 44100);
    ASSERT_EQ(0, run(signals::stereo(left, right)));
    EXPECT_NEAR(0.1, output.samples[2000] / output.samples[2001], 1e-12);
    // Power of all samples: (0.0004 + 0.04) / 2, RMS 0.142127; but the estimate takes each bin's
    // louder channel, 0.2, to the target 0.125893.
    EXPECT_NEAR(0.125893, std::fabs(output.samples[2001]), 0.125893 * 0.0012);
}

TEST_F(Normalize, TheBitDepthReplacesTheEncoding) {
    struct Row {
        const char* depth;
        int format, expected;
    };

    const Row rows[] = {
        {"0", kWavFloat, kWavFloat},
        {"16", kWavFloat, kWav16},
        {"24", kWav16, SF_FORMAT_WAV | SF_FORMAT_PCM_24},
        {"32", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, SF_FORMAT_AIFF | SF_FORMAT_PCM_32},
        {"8", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, SF_FORMAT_AIFF | SF_FORMAT_PCM_S8},
    };
    for (const Row& row : rows) {
        ASSERT_EQ(0, run(signals::square(0.1, 9000), {"-b", row.depth}, row.format)) << row.depth;
        EXPECT_EQ(row.expected, sound_info(dir / "out.wav").format) << row.depth;
    }
    EXPECT_THROW(run(signals::square(0.1, 9000), {"-b", "8"}, kWav16), std::runtime_error);
}

TEST_F(Normalize, PositiveCeilingAndFloorAreTakenAsNegative) {
    Signal input = signals::square(0.02, 44100);
    input.samples[30000] = 0.5;
    ASSERT_EQ(0, run(input, {"-p", "-3"}));
    const std::vector<double> expected = output.samples;
    ASSERT_EQ(0, run(input, {"-p", "3", "-f", "44"}));
    EXPECT_EQ(
        "Warning: Peak must be negative.  Value has been changed to -3.00.\n"
        "Warning: Specified noise floor was positive.  Value has been changed to -44.00.\n",
        out);
    EXPECT_EQ(expected, output.samples);
}

TEST_F(Normalize, FailuresAreLogged) {
    const std::string file = dir / "in.wav";
    EXPECT_EQ(1, run(signals::square(0.005, 9000)));
    EXPECT_EQ(file + " is silent\n", out);
    EXPECT_EQ(1, run(signals::square(0.5, 9000, 44100, 3), {}, kWav16));
    EXPECT_EQ("normalize: cannot process more than 2 channels; " + file + " has 3\n", out);
    EXPECT_EQ(1, run(signals::square(0.5, 9000), {"-s", "0"}));
    EXPECT_THAT(out, HasSubstr("bins shorter than a frame"));

    const CapturedOutput captured;
    EXPECT_EQ(1, call(normalize::_tmain, {"normalize", dir / "none", dir / "o"}));
    EXPECT_EQ("Error opening " + dir / "none" + " for input\n", captured.out());
    EXPECT_EQ(1, call(normalize::_tmain, {"normalize", "in"}));
    EXPECT_THAT(captured.out(), HasSubstr("normalize:\n  -h [ --help ]"));
}

}  // namespace
