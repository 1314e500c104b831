#include "Common/gate/gate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Common/gate/LevelMeter.h"
#include "tests/support/signals.h"
#include "tests/support/step_test.h"

namespace {

const double kClosed = std::pow(10.0, -12.0 / 20.0);  // the default closed gain
constexpr int kRate = 1000;                           // one sample a millisecond; the meter holds 5

/** Loud is 0.5, quiet 0.01; a full meter of them holds 1.25 and 0.0005. */
Signal loud(long long frames) {
    return signals::square(0.5, frames, kRate);
}

Signal quiet(long long frames) {
    return signals::square(0.01, frames, kRate);
}

class Gate : public StepTest {
  protected:
    /** Thresholds at -20 dB: energy 0.1^2 * 5 = 0.05. Times in ms, that is, samples. */
    int run(const Signal& input,
            std::vector<std::string> options,
            int anticipate = 0,
            int format = kWavDouble) {
        write_sound(dir / "in.wav", input, format);
        return run_step(gate::_tmain,
                        {"gate", dir / "in.wav", dir / "out.wav", "--gate__threshold_attack", "-20",
                         "--gate__threshold_release", "-20", "-k", std::to_string(anticipate)},
                        options);
    }

    /** The gain that each frame of one channel got. */
    std::vector<double> gains(const Signal& input, int channel = 0) {
        const Signal output = read_sound(dir / "out.wav");
        EXPECT_EQ(input.samples.size(), output.samples.size());
        std::vector<double> gain;
        for (std::size_t i = static_cast<std::size_t>(channel); i < output.samples.size();
             i += static_cast<std::size_t>(input.channels)) {
            gain.push_back(output.samples[i] / input.samples[i]);
        }
        return gain;
    }
};

TEST(LevelMeter, HoldsTheEnergyOfTheLastSamples) {
    gate::CLevelMeter meter(3);
    const double start[] = {1.0, 2.0, 3.0};
    EXPECT_EQ(14.0, meter.initialize(start));
    EXPECT_EQ(4.0 + 9.0 + 16.0, meter.update(4.0));
    EXPECT_EQ(9.0 + 16.0, meter.update(0.0));
    EXPECT_EQ(16.0 + 1.0, meter.update(1.0));
    EXPECT_EQ(1.0, meter.update(0.0));
}

TEST_F(Gate, HoldsAfterSpeechThenFallsLinearlyToTheClosedGain) {
    const Signal input = signals::join({loud(100), quiet(400)});
    ASSERT_EQ(0, run(input, {"-d", "10", "-r", "100"}));
    // The loud samples leave the meter one by one: with 100 the first quiet sample, 103 still sees
    // one (0.25), 104 none: the hold begins. 11 samples later, at 115, it has lasted; the state
    // changes there and the first step of the release falls on 116.
    const double step = (1.0 - kClosed) / 100;
    const std::vector<double> gain = gains(input);
    EXPECT_EQ(1.0, gain[115]);
    EXPECT_NEAR(1.0 - step, gain[116], 1e-9);
    EXPECT_NEAR(1.0 - 50 * step, gain[165], 1e-9);
    EXPECT_NEAR(kClosed + step, gain[214], 1e-9);
    EXPECT_NEAR(kClosed, gain[215], 1e-9);
    EXPECT_NEAR(kClosed, gain[499], 1e-9);
}

TEST_F(Gate, OpensAheadOfSpeech) {
    const Signal input = signals::join({quiet(300), loud(300)});
    ASSERT_EQ(0, run(input, {"-a", "50"}, 50));
    // The look-ahead meter meets the onset at 250; the attack runs from 251 to 300.
    const double step = (1.0 - kClosed) / 50;
    const std::vector<double> gain = gains(input);
    EXPECT_NEAR(kClosed, gain[0], 1e-12);
    EXPECT_NEAR(kClosed, gain[250], 1e-12);
    EXPECT_NEAR(kClosed + step, gain[251], 1e-12);
    EXPECT_NEAR(1.0, gain[300], 1e-12);
    EXPECT_EQ(1.0, gain[599]);
}

TEST_F(Gate, APauseShorterThanTheHoldPassesUntouched) {
    const Signal input = signals::join({loud(100), quiet(12), loud(100)});
    ASSERT_EQ(0, run(input, {"-d", "10", "-r", "100"}));
    EXPECT_EQ(std::vector<double>(212, 1.0), gains(input));
}

TEST_F(Gate, ChannelsAreGatedByThemselves) {
    const Signal input = signals::stereo(loud(9000), quiet(9000));
    ASSERT_EQ(0, run(input, {}));
    EXPECT_EQ(std::vector<double>(9000, 1.0), gains(input, 0));
    for (const double gain : gains(input, 1)) {
        ASSERT_NEAR(kClosed, gain, 1e-12);
    }
    EXPECT_EQ(0.18F, progress.fractions().back());
}

TEST_F(Gate, WhatLiesAheadOfTheEndIsTheBlockBefore) {
    // 8192 + 100 samples, 60 ahead: the second look-ahead read brings 40 samples, and the 60 behind
    // them are what the first left at 40..99. There it is loud (60 ahead of the samples 40..99 are
    // 100..159), so at the quiet end the gate opens.
    const Signal input = signals::join({quiet(100), loud(60), quiet(8192 + 100 - 160)});
    ASSERT_EQ(0, run(input, {"-a", "20", "-d", "0", "-r", "1"}, 60));
    const std::vector<double> gain = gains(input);
    EXPECT_NEAR(kClosed, gain[8192 + 39], 1e-12);
    EXPECT_NEAR(1.0, gain[8192 + 70], 1e-12);
}

TEST_F(Gate, AFileShorterThanTheAnticipationIsCopied) {
    const Signal input = quiet(40);
    ASSERT_EQ(0, run(input, {}, 41, kWav16));
    EXPECT_EQ(read_text(dir / "in.wav"), read_text(dir / "out.wav"));
    EXPECT_EQ(0.18F, progress.fractions().back());
}

TEST_F(Gate, AFileShorterThanTheMeterFails) {
    EXPECT_EQ(1, run(loud(4), {}));
    EXPECT_EQ("Error reading " + dir / "in.wav" +
                  "\nExpected more samples\nThe sound file may be corrupt\n",
              err);
}

TEST_F(Gate, TheMeterLengthOptionChangesNothing) {
    const Signal input = signals::join({loud(100), quiet(200)});
    ASSERT_EQ(0, run(input, {"-d", "10"}));
    const Signal plain = read_sound(dir / "out.wav");
    ASSERT_EQ(0, run(input, {"-d", "10", "--gate__buffer_size", "900"}));
    EXPECT_EQ(plain.samples, read_sound(dir / "out.wav").samples);
}

TEST_F(Gate, SettingsThatCannotWorkAreRefused) {
    EXPECT_EQ(1, run(signals::square(0.5, 100, 100), {}));
    EXPECT_THAT(err, testing::HasSubstr("sample rate is too low"));
    EXPECT_EQ(1, run(loud(100), {"-x", "0", "-n", "0", "-a", "0"}));
    EXPECT_THAT(err, testing::HasSubstr("attack and release"));
    EXPECT_EQ(1, run(signals::square(0.5, 100, kRate, 3), {}));
    EXPECT_THAT(err, testing::HasSubstr("more than 2 channels"));
}

}  // namespace
