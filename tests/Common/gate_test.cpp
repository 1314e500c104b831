#include "Common/gate/gate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <random>

#include "Common/gate/NoiseGate.h"
#include "tests/support/arrays.h"
#include "tests/support/step_test.h"

namespace {

const double kClosedGain = std::pow(10.0, -12.0 / 20.0);  // the default closed gain

/** Loud is 0.5, quiet 0.01; a full meter of them holds 1.25 and 0.0005. */
Signal loud(long long frames) {
    return signals::square(0.5, frames, kMillisecondRate);
}

Signal quiet(long long frames) {
    return signals::square(0.01, frames, kMillisecondRate);
}

/** Thresholds at -20 dB: energy 0.1^2 * 5 = 0.05. Times in ms, that is, samples. */
struct Settings {
    int attack = 100;
    int release = 250;
    int hold = 250;
    int anticipate = 0;

    gate::GateArgs args(const SF_INFO& info) const {
        gate::GateArgs args;
        args.threshold_attack_db = args.threshold_release_db = -20.0;
        args.attack_ms = attack;
        args.release_ms = release;
        args.hold_ms = hold;
        args.anticipate_ms = anticipate;
        args.ConvertArgs(info);
        return args;
    }
};

std::vector<double> gated(ArraySource source, const Settings& settings) {
    Collector output(source.info().channels);
    gate::CNoiseGate noise_gate(settings.args(source.info()), source, output);
    EXPECT_EQ(0, noise_gate.exec());
    EXPECT_EQ(1, output.ends);
    return output.samples;
}

/** The gain that each sample got. */
std::vector<double> gains(const Signal& input, const Settings& settings) {
    std::vector<double> gain = gated(ArraySource(input), settings);
    EXPECT_EQ(input.samples.size(), gain.size());
    for (std::size_t i = 0; i < gain.size(); ++i) {
        gain[i] /= input.samples[i];
    }
    return gain;
}

TEST(LevelMeter, HoldsTheEnergyOfTheLastSamples) {
    gate::CLevelMeter meter(3);
    const double start[] = {1.0, 2.0, 3.0};
    EXPECT_EQ(14.0, meter.initialize(start));
    EXPECT_EQ(4.0 + 9.0 + 16.0, meter.update(4.0));
    EXPECT_EQ(9.0 + 16.0, meter.update(0.0));
    EXPECT_EQ(16.0 + 1.0, meter.update(1.0));
    EXPECT_EQ(1.0, meter.update(0.0));
}

TEST(Gate, HoldsAfterSpeechThenFallsLinearlyToTheClosedGain) {
    // The loud samples leave the meter one by one: with 100 the first quiet sample, 103 still sees
    // one (0.25), 104 none: the hold begins. 11 samples later, at 115, it has lasted; the state
    // changes there and the first step of the release falls on 116.
    const double step = (1.0 - kClosedGain) / 100;
    const std::vector<double> gain =
        gains(signals::join({loud(100), quiet(400)}), {100, 100, 10, 0});
    EXPECT_EQ(1.0, gain[115]);
    EXPECT_NEAR(1.0 - step, gain[116], 1e-9);
    EXPECT_NEAR(1.0 - 50 * step, gain[165], 1e-9);
    EXPECT_NEAR(kClosedGain + step, gain[214], 1e-9);
    EXPECT_NEAR(kClosedGain, gain[215], 1e-9);
    EXPECT_NEAR(kClosedGain, gain[499], 1e-9);
}

TEST(Gate, OpensAheadOfSpeech) {
    // The look-ahead meter meets the onset at 250; the attack runs from 251 to 300.
    const double step = (1.0 - kClosedGain) / 50;
    const std::vector<double> gain =
        gains(signals::join({quiet(300), loud(300)}), {50, 250, 250, 50});
    EXPECT_NEAR(kClosedGain, gain[0], 1e-12);
    EXPECT_NEAR(kClosedGain, gain[250], 1e-12);
    EXPECT_NEAR(kClosedGain + step, gain[251], 1e-12);
    EXPECT_NEAR(1.0, gain[300], 1e-12);
    EXPECT_EQ(1.0, gain[599]);
}

TEST(Gate, ASecondReaderTakesTheDelayLinesPlace) {
    // What the second reader hears after its seek, a loud start, opens the gate of a quiet file.
    const Settings settings{50, 250, 250, 50};
    ArraySource source(quiet(600));
    ArraySource ahead(signals::join({loud(350), quiet(200)}));
    Collector output;
    gate::CNoiseGate noise_gate(settings.args(source.info()), source, output, &ahead);
    noise_gate.exec();
    EXPECT_NEAR(1.0, output.samples[60] / quiet(600).samples[60], 1e-12);
}

TEST(Gate, APauseShorterThanTheHoldPassesUntouched) {
    EXPECT_EQ(std::vector<double>(212, 1.0),
              gains(signals::join({loud(100), quiet(12), loud(100)}), {100, 100, 10, 0}));
}

/** The gate's states for one channel, from the energies at the sample and ahead of it. */
class PlainGate {
  public:
    PlainGate(const gate::GateArgs& args, double start_energy)
        : args_(args),
          state_(start_energy > args.attack_energy ? kOpen : kClosed),
          gain_(state_ == kOpen ? args.open_gain : args.closed_gain) {}

    double gain(double now, double ahead) {
        const double range = args_.open_gain - args_.closed_gain;
        const bool ends = now < args_.release_energy;
        if (state_ == kOpen && ends) {
            state_ = kHolding;
            held_ = 0;
        } else if ((state_ == kClosed || state_ == kClosing) && ahead > args_.attack_energy) {
            state_ = kOpening;
        } else if (state_ == kOpening && ahead < args_.release_energy) {
            state_ = kClosing;
        } else if (state_ == kOpening) {
            gain_ = std::min(gain_ + range / args_.attack_samples, args_.open_gain);
            state_ = gain_ == args_.open_gain ? kOpen : kOpening;
        } else if (state_ == kClosing) {
            gain_ = std::max(gain_ - range / args_.release_samples, args_.closed_gain);
            state_ = gain_ == args_.closed_gain ? kClosed : kClosing;
        } else if (state_ == kHolding && now > args_.release_energy) {
            state_ = kOpen;
        } else if (state_ == kHolding && held_++ >= args_.hold_samples) {
            state_ = kClosing;
        }
        return gain_;
    }

  private:
    const gate::GateArgs& args_;

    enum { kOpen, kClosed, kOpening, kClosing, kHolding } state_;

    double gain_;
    int held_ = 0;
};

/**
 * What the reader ahead finds for each sample: it reads a buffer of `block` samples at a time and
 * leaves in it what a short read does not reach, or zeroes. Empty where it is at the end.
 */
std::vector<std::optional<double>> samples_ahead(const Signal& input,
                                                 long long distance,
                                                 long long block,
                                                 bool zeroes) {
    const long long samples = static_cast<long long>(input.samples.size());
    std::vector<double> buffer(static_cast<std::size_t>(block), 0.0);
    std::vector<std::optional<double>> found;
    for (long long from = 0; from < samples; from += block) {
        const long long first = std::min(from + distance, samples);
        const long long there = std::min(block, samples - first);
        std::copy_n(input.samples.begin() + first, there, buffer.begin());
        if (zeroes) {
            std::fill(buffer.begin() + there, buffer.end(), 0.0);
        }
        for (long long i = 0; i < std::min(block, samples - from); ++i) {
            found.push_back(there > 0 ? std::optional(buffer[static_cast<std::size_t>(i)])
                                      : std::nullopt);
        }
    }
    return found;
}

/** The gate with two readers, one of them ahead; the energies come from plain sums. */
std::vector<double> with_two_readers(const Signal& input, const Settings& settings, bool zeroes) {
    const gate::GateArgs args = settings.args(ArraySource(input).info());
    const auto channels = static_cast<std::size_t>(input.channels);
    const auto ahead_of = samples_ahead(input, args.anticipate_samples * input.channels,
                                        8192 - 8192 % input.channels, zeroes);
    std::vector<double> output = input.samples;
    for (std::size_t channel = 0; channel < channels; ++channel) {
        std::vector<double> start;
        for (int i = 0; i < args.meter_samples; ++i) {
            start.push_back(input.samples[static_cast<std::size_t>(i) * channels + channel]);
        }
        gate::CLevelMeter current(args.meter_samples);
        gate::CLevelMeter ahead(args.meter_samples);
        PlainGate plain(args, current.initialize(start.data()));
        ahead.initialize(start.data());
        for (std::size_t i = channel; i < output.size(); i += channels) {
            const double now = current.update(output[i]);
            output[i] *= plain.gain(now, ahead_of[i] ? ahead.update(*ahead_of[i]) : now);
        }
    }
    return output;
}

TEST(Gate, TheDelayLineHearsWhatTwoReadersHear) {
    std::mt19937 random(5);
    for (int round = 0; round < 60; ++round) {
        const int channels = 1 + round % 2;
        const long long frames = 8192 / channels * (round % 4) + random() % 700 + 30;
        Signal input{kMillisecondRate, channels, {}};
        double level = 0.2;
        for (long long i = 0; i < frames * channels; ++i) {
            level = random() % 60 == 0 ? (random() % 2 == 0 ? 0.3 : 0.01) : level;
            input.samples.push_back(random() % 2 == 0 ? level : -level);
        }
        const int ahead = static_cast<int>(random() % (round % 2 == 0 ? frames + 1 : 1000)) %
                          static_cast<int>(frames + 1);
        const Settings settings{static_cast<int>(random() % 30 + 1), 40, 20, ahead};
        ArraySource source(input, 3000);
        source.zeroes = round % 3 == 0;
        ASSERT_EQ(with_two_readers(input, settings, source.zeroes), gated(source, settings))
            << round;
    }
}

class GateStep : public StepTest {
  protected:
    int run(const Signal& input, const std::vector<std::string>& options, int format = kWavDouble) {
        write_sound(dir / "in.wav", input, format);
        return run_step(gate::_tmain, {"gate", dir / "in.wav", dir / "out.wav"}, options);
    }
};

TEST_F(GateStep, GatesChannelsByThemselvesAndIgnoresTheMeterLength) {
    const Signal input = signals::stereo(loud(9000), signals::silence(9000, kMillisecondRate));
    ASSERT_EQ(0, run(input, {"-k", "0"}));
    EXPECT_EQ(input.samples, read_sound(dir / "out.wav").samples);
    EXPECT_EQ(0.18F, progress.fractions().back());
    const Signal speech = signals::speech(2.0, 8000);
    ASSERT_EQ(0, run(speech, {"-d", "10"}));
    const std::vector<double> plain = read_sound(dir / "out.wav").samples;
    EXPECT_NE(speech.samples, plain);
    ASSERT_EQ(0, run(speech, {"-d", "10", "--gate__buffer_size", "900"}));
    EXPECT_EQ(plain, read_sound(dir / "out.wav").samples);
}

TEST_F(GateStep, AFileShorterThanTheAnticipationIsCopied) {
    ASSERT_EQ(0, run(quiet(40), {"-k", "41"}, kWav16));
    EXPECT_EQ(read_text(dir / "in.wav"), read_text(dir / "out.wav"));
    EXPECT_EQ(0.18F, progress.fractions().back());
}

TEST_F(GateStep, WhatCannotWorkIsRefused) {
    EXPECT_EQ(1, run(loud(4), {"-k", "0"}));
    EXPECT_EQ("Error reading " + dir / "in.wav" +
                  "\nExpected more samples\nThe sound file may be corrupt\n",
              err);
    EXPECT_EQ(1, run(signals::square(0.5, 100, 100), {}));
    EXPECT_THAT(err, testing::HasSubstr("sample rate is too low"));
    EXPECT_EQ(1, run(loud(100), {"-x", "0", "-n", "0", "-a", "0"}));
    EXPECT_THAT(err, testing::HasSubstr("attack and release"));
    EXPECT_EQ(1, run(signals::square(0.5, 100, kMillisecondRate, 3), {}));
    EXPECT_THAT(err, testing::HasSubstr("more than 2 channels"));
}

}  // namespace
