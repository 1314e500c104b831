#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "Common/stream/helper_thread.h"
#include "leveling/preparation/preparation.h"
#include "leveling/publish/true_peak.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

namespace {

class PreparedRun : public testing::Test {
  protected:
    quorvane::PreparedResult level(const Signal& signal, int format) {
        write_sound(dir / "in.wav", signal, format);
        quorvane::PreparedRun run{dir / "in.wav", dir / "out.wav", 0, dir.path(), {}};
        const auto result = level_prepared(run, [](double) {});
        out = result.leveled ? read_sound(dir / "out.wav") : Signal{};
        return result;
    }

    /** Two voices 10 dB apart, with ten seconds of room tone or silence between them. */
    static Signal talk(double tone, double gain) {
        Signal first = signals::speech(20, 16000);
        Signal second = signals::speech(20, 16000);
        unsigned seed = 1;
        const auto noise = [&](long long) {
            seed = seed * 1664525U + 1013904223U;
            return tone * (static_cast<double>(seed) / 2147483648.0 - 1);
        };
        for (double& sample : second.samples) {
            sample *= 0.3;
        }
        Signal all = signals::join({first, signals::from(noise, 160000, 16000), second});
        for (double& sample : all.samples) {
            sample *= gain;
        }
        return all;
    }

    TempDir dir;
    Signal out;
};

TEST_F(PreparedRun, GivesTheSameWhateverTheGainOfTheInput) {
    level(talk(0.002, 1), kWavFloat);
    const Signal loud = out;
    const auto result = level(talk(0.002, 0.004), kWavFloat);
    ASSERT_EQ(loud.samples.size(), out.samples.size());
    EXPECT_GT(result.preparation->raised_db, 40);
    double error = 0;
    for (std::size_t i = 0; i < out.samples.size(); ++i) {
        error = std::max(error, std::fabs(out.samples[i] - loud.samples[i]));
    }
    EXPECT_LT(error, 1e-3);
}

TEST_F(PreparedRun, KeepsAPauseDownAndDigitalSilenceSilent) {
    const auto level_of = [](const Signal& signal, double from_s, double to_s) {
        return 20 * std::log10(rms_of(signal, static_cast<long long>(from_s * 16000),
                                      static_cast<long long>(to_s * 16000)));
    };
    const Signal in = talk(0.005, 1);
    const auto result = level(in, kWav16);
    EXPECT_GE(result.preparation->pauses, 1);
    EXPECT_TRUE(result.preparation->dithered);
    const double speech_gain = level_of(out, 0, 20) - level_of(in, 0, 20);
    EXPECT_LT(level_of(out, 22, 28) - level_of(in, 22, 28),
              speech_gain + 6);  // the quieter voices get 16 dB more

    level(talk(0, 1), kWav16);
    EXPECT_EQ(0, rms_of(out, 21 * 16000, 29 * 16000));
}

TEST_F(PreparedRun, LeavesWhatIsEvenAloneButForOneGain) {
    level(talk(0.002, 1), kWavFloat);
    const Signal once = out;
    const auto result = level(once, kWavFloat);
    EXPECT_TRUE(result.preparation->even);
    const double gain = out.samples[20000] / once.samples[20000];
    for (std::size_t i = 0; i < out.samples.size(); i += 997) {
        EXPECT_NEAR(once.samples[i] * gain, out.samples[i], 1e-6) << i;
    }
}

TEST_F(PreparedRun, HoldsTheWaveBetweenSamplesBelowFullScale) {
    // Bursts of a quarter of the sample rate, an eighth of a period off: 3 dB over every sample.
    Signal signal = talk(0.002, 0.5);
    for (std::size_t i = 0; i < signal.samples.size(); ++i) {
        if (i % 12000 < 48) {
            signal.samples[i] = 0.9 * std::sin(M_PI / 2 * static_cast<double>(i) + M_PI / 4);
        }
    }
    for (int round = 1; round <= 2; ++round) {
        ASSERT_TRUE(level(signal, kWavFloat).leveled) << round;
        const double peak_db = 20 * std::log10(quorvane::true_peak_of(dir / "out.wav"));
        EXPECT_LT(peak_db, -0.6) << round;
        EXPECT_GT(peak_db, -1.3) << round;
        signal = out;
    }
}

TEST_F(PreparedRun, DucksForAClickOnlyAsLongAsItTakes) {
    // A click of 2 ms, 6 dB over the ceiling behind the gain, in the middle of speech with a tone.
    Signal in = talk(0.002, 0.25);
    for (std::size_t i = 0; i < in.samples.size(); ++i) {
        in.samples[i] = 0.3 * in.samples[i] + 0.05 * std::sin(0.3 * static_cast<double>(i));
    }
    level(in, kWavFloat);
    const Signal calm = out;
    const std::size_t click = 10 * 16000;
    const double gain = calm.samples[click - 99] / in.samples[click - 99];
    for (std::size_t i = 0; i < 32; ++i) {
        in.samples[click + i] = (i / 4 % 2 == 0 ? 2 : -2) * 0.89 / gain;
    }
    level(in, kWavFloat);
    const auto change_db = [&](std::size_t from, std::size_t frames) {
        double with = 0;
        double without = 0;
        for (std::size_t i = from; i < from + frames; ++i) {
            with += out.samples[i] * out.samples[i];
            without += calm.samples[i] * calm.samples[i];
        }
        return 10 * std::log10(with / without);
    };
    const double before_db = change_db(click - 4800, 3200);
    EXPECT_LT(change_db(click + 40, 80), before_db - 4);
    for (std::size_t i = click + 960; i < click + 8000; i += 160) {
        EXPECT_GT(change_db(i, 160), before_db - 1) << i;  // 60 ms behind it
    }
    EXPECT_LT(20 * std::log10(quorvane::true_peak_of(dir / "out.wav")), -0.64);
}

TEST_F(PreparedRun, DescribesTheGainOfEveryRecordingThatItLevels) {
    struct Row {
        const char* name;
        double quiet;  // of every other second of noise bursts, linear
        double seconds;
        bool is_even;
    };

    // Bursts of 0.375 s, two a second: 18 dB apart, and level.
    const Row rows[] = {{"uneven, 2 s", 0.126, 2, false},
                        {"uneven, 6 s", 0.126, 6, false},
                        {"even, 2 s", 1, 2, true},
                        {"even, 6 s", 1, 6, true}};
    for (const Row& row : rows) {
        unsigned seed = 1;
        const auto burst = [&](long long i) {
            seed = seed * 1664525U + 1013904223U;
            const double gain = i / 16000 % 2 == 1 ? row.quiet : 1;
            return i % 8000 < 6000 ? 0.3 * gain * (static_cast<double>(seed) / 2147483648.0 - 1)
                                   : 0.0;
        };
        const auto frames = static_cast<long long>(row.seconds * 16000);
        const auto result = level(signals::from(burst, frames, 16000), kWav16);
        ASSERT_TRUE(result.leveled) << row.name;
        EXPECT_EQ(row.is_even, result.preparation->even) << row.name;
        ASSERT_TRUE(result.leveling) << row.name;
        EXPECT_FALSE(result.leveling->passages.empty()) << row.name;
        EXPECT_FALSE(result.leveling->gain_db.values.empty()) << row.name;
        // What is 18 dB apart comes at least 10 dB nearer; one gain does not move, and neither does
        // the engine's where there is less than two seconds of words.
        const double span_db = result.leveling->greatest_gain_db - result.leveling->least_gain_db;
        EXPECT_TRUE(row.is_even || row.seconds < 3 ? span_db == 0 : span_db > 10)
            << row.name << ": " << span_db;
    }
}

TEST_F(PreparedRun, GivesTheSameWithASecondThreadAndWithout) {
    using stream::HelperThread;
    Signal in = talk(0.002, 0.5);
    in.samples[100000] = 0.9;  // for the limiter
    for (const int format : {kWav16, kWavFloat}) {
        const HelperThread::Use alone(HelperThread::Help::kAlone);
        ASSERT_TRUE(level(in, format).leveled);
        const Signal expected = out;
        const HelperThread::Use helped(HelperThread::Help::kHelped);
        ASSERT_TRUE(level(in, format).leveled);
        EXPECT_TRUE(expected.samples == out.samples);
    }
}

TEST_F(PreparedRun, CopiesAFaintHissWithoutSpeech) {
    unsigned seed = 1;
    const Signal hiss = signals::from(
        [&](long long) {
            seed = seed * 1664525U + 1013904223U;
            return 1e-4 * (static_cast<double>(seed) / 2147483648.0 - 1);
        },
        160000, 16000);
    const auto result = level(hiss, kWavFloat);
    EXPECT_FALSE(result.leveled);
    EXPECT_THAT(result.cause, testing::HasSubstr("background noise"));
}

}  // namespace
