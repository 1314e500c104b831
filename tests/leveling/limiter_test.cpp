#include "leveling/publish/limiter.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "leveling/audio/portable_math.h"
#include "leveling/publish/local_ceilings.h"
#include "leveling/publish/publish.h"
#include "leveling/publish/true_peak.h"
#include "tests/support/fixtures.h"
#include "tests/support/peaks.h"
#include "tests/support/signals.h"

using testing::AllOf;
using testing::DoubleNear;
using testing::Ge;
using testing::Le;

namespace quorvane {
namespace {

/** A tone at that fraction of the rate, with the phase in radians, faded in and out. */
Signal tone(double amplitude, double of_rate, double phase, int channels = 1) {
    constexpr long long kFrames = 4000;
    const double pi = std::acos(-1.0);
    return signals::from(
        [=](long long i) {
            const double at = static_cast<double>(i) / kFrames;
            return amplitude * std::sin(pi * at) *
                   std::sin(2 * pi * of_rate * static_cast<double>(i) + phase);
        },
        kFrames, 48000, channels);
}

TEST(TruePeak, IsThatOfTheWaveWhateverTheSamplesMiss) {
    // At a quarter of the rate and 45 degrees every sample lies 3 dB below the crest.
    for (double of_rate : {0.02, 0.1, 0.25, 0.33, 0.4}) {
        for (double phase : {0.0, 0.4, std::acos(-1.0) / 4, 1.2}) {
            SCOPED_TRACE(testing::Message() << of_rate << " of the rate, phase " << phase);
            EXPECT_THAT(to_db(found_peak(tone(0.5, of_rate, phase), 4096)),
                        DoubleNear(to_db(0.5), 0.04));
        }
    }
    const Signal signal = tone(0.5, 0.31, 0.3, 2);
    EXPECT_EQ(found_peak(signal, 4096), found_peak(signal, 37)) << "blocks do not matter";
}

std::vector<double> limited(const Signal& signal, double gain, double ceiling, std::size_t block) {
    TruePeakLimiter limiter(signal.channels, signal.sample_rate_hz, gain, ceiling);
    std::vector<double> out;
    const auto frames = static_cast<std::size_t>(signal.frames());
    for (std::size_t at = 0; at < frames; at += block) {
        limiter.process(signal.samples.data() + at * static_cast<std::size_t>(signal.channels),
                        std::min(block, frames - at), out);
    }
    limiter.finish(out);
    return out;
}

TEST(Limiter, BelowTheCeilingOnlyTheGainIsHeard) {
    const Signal signal = signals::speech(2, 16000, 2);  // peaks at 0.5, noise between samples 1.2
    std::vector<double> expected = signal.samples;
    for (double& sample : expected) {
        sample *= 0.5;
    }
    EXPECT_EQ(expected, limited(signal, 0.5, 0.9, 1000)) << "every frame at its own place";
    EXPECT_EQ(limited(signal, 3, 0.9, 100000), limited(signal, 3, 0.9, 77)) << "in any blocks";
}

TEST(Limiter, TheCeilingHoldsAndTheGainMovesSmoothly) {
    struct Row {
        const char* name;
        Signal signal;
    };

    const Row rows[] = {
        {"speech", signals::speech(6, 16000)},
        {"tone", signals::sine(0.5, 997, 1, 44100)},
        {"crests between samples", tone(0.7, 0.25, std::acos(-1.0) / 4)},
        {"one click", signals::from([](long long i) { return i == 5000 ? 1.0 : 0.001; }, 20000)},
        {"steps", signals::join({signals::sine(0.05, 200, 1), signals::sine(1, 200, 1),
                                 signals::sine(0.05, 200, 1)})},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Signal result = row.signal;
        result.samples = limited(row.signal, 4, 0.89125, 512);
        ASSERT_EQ(row.signal.samples.size(), result.samples.size());
        EXPECT_THAT(to_db(found_peak(result, 4096)), Le(-1.0 + kPeakTolerance));
    }

    // A level that comes up by 26 dB: two means over 110 frames each move the gain by 1 / 110 of
    // the way in a frame at most, and it has arrived when the level comes.
    const Signal steps = signals::from([](long long i) { return i < 9000 ? 0.04 : 0.8; }, 20000);
    const std::vector<double> out = limited(steps, 4, 0.89125, 512);
    double before = 1;
    double steepest = 0;
    for (std::size_t i = 8000; i <= 9000; ++i) {
        const double gain = out[i] / (4 * steps.samples[i]);
        steepest = std::max(steepest, before - gain);
        before = gain;
    }
    EXPECT_THAT(before, Le(0.89125 / 3.2));
    EXPECT_THAT(steepest, Le(1.0 / 110));
}

/** Milliseconds from the end of a burst of so many seconds until the gain is within 1 dB of 1. */
double recovery_ms(double burst_s, double burst_amplitude) {
    constexpr int kRate = 48000;
    constexpr long long kBegin = kRate;
    const auto end = kBegin + static_cast<long long>(burst_s * kRate);
    const Signal tone = signals::sine(0.25, 1000, 5, kRate);
    Signal signal = tone;
    for (long long i = kBegin; i < end; ++i) {
        signal.samples[static_cast<std::size_t>(i)] *= burst_amplitude / 0.25;
    }
    const std::vector<double> out = limited(signal, 1, 0.5, 4096);
    long long last = end;
    for (auto i = static_cast<std::size_t>(end); i < out.size(); ++i) {
        const bool reduced = std::fabs(out[i]) < std::fabs(signal.samples[i]) / 1.122;
        last = reduced ? static_cast<long long>(i) : last;
    }
    return static_cast<double>(last - end) * 1000 / kRate;
}

TEST(Limiter, RecoversAtOnceFromAClickAndSlowlyFromALoudWord) {
    // From a reduction of 6 dB, 0.5, to 1 dB, 0.891, a recursion takes ln(0.5 / 0.109) = 1.52 of
    // its time constants: 23 ms of the quick release, 228 ms of the slow one, behind hold and
    // attack.
    for (double click_s : {0.001, 0.002, 0.005, 0.01}) {
        EXPECT_THAT(recovery_ms(click_s, 1), Le(55)) << click_s;
    }
    EXPECT_THAT(recovery_ms(0.002, 2), Le(80)) << "12 dB";
    // After 0.4 s the slow gain is within e^-2.7 = 7 % of the reduction.
    EXPECT_THAT(recovery_ms(0.4, 1), AllOf(Ge(215), Le(260)));
    EXPECT_THAT(recovery_ms(2, 1), AllOf(Ge(228), Le(260)));
}

TEST(Limiter, AddsNothingToASteadyTone) {
    // 997 Hz, 6 dB over the ceiling: what the third second holds besides the tone and its level.
    const std::vector<double> out = limited(signals::sine(1.0, 997, 4, 48000), 1, 0.5, 4096);
    double in_phase = 0;
    double across = 0;
    double power = 0;
    for (std::size_t i = 0; i < 48000; ++i) {
        const double angle = 2 * std::acos(-1.0) * 997 * static_cast<double>(i) / 48000;
        in_phase += out[96000 + i] * std::sin(angle) / 24000;
        across += out[96000 + i] * std::cos(angle) / 24000;
        power += out[96000 + i] * out[96000 + i] / 48000;
    }
    const double tone = (in_phase * in_phase + across * across) / 2;
    EXPECT_LT(10 * std::log10(std::max(1e-30, power / tone - 1)), -136);
}

TEST(Limiter, LooksForNoPeakWhereNoneIsExpected) {
    const Signal loud = signals::sine(1, 300, 1);
    TruePeakLimiter limiter(1, loud.sample_rate_hz, 1, 0.5);
    std::vector<double> out;
    limiter.expect(Peaks::kNone);
    limiter.process(loud.samples.data(), 8000, out);
    limiter.expect(Peaks::kPossible);
    limiter.process(loud.samples.data() + 8000, loud.samples.size() - 8000, out);
    limiter.finish(out);
    EXPECT_EQ(std::vector<double>(loud.samples.begin(), loud.samples.begin() + 7000),
              std::vector<double>(out.begin(), out.begin() + 7000));
    EXPECT_LE(*std::max_element(out.begin() + 9000, out.end()), 0.5);
}

TEST(Limiter, FindsThePeaksBehindAStretchWithoutAny) {
    Signal signal = signals::sine(1, 300, 1);
    for (std::size_t i = 0; i < 8000; ++i) {
        signal.samples[i] *= 0.3;
    }
    for (const std::size_t block : {20, 100, 500}) {  // a run of the finder has 128 frames
        TruePeakLimiter limiter(1, signal.sample_rate_hz, 1, 0.5);
        std::vector<double> out;
        for (std::size_t at = 0; at < signal.samples.size(); at += block) {
            limiter.expect(at < 7500 ? Peaks::kNone : Peaks::kPossible);
            limiter.process(signal.samples.data() + at, std::min(block, signal.samples.size() - at),
                            out);
        }
        limiter.finish(out);
        EXPECT_EQ(limited(signal, 1, 0.5, 4096), out) << block;
    }
}

TEST(Limiter, ChannelsStayTogether) {
    const Signal loud = signals::sine(1, 300, 1);
    Signal quiet = loud;
    for (double& sample : quiet.samples) {
        sample *= 0.1;
    }
    const std::vector<double> out = limited(signals::stereo(loud, quiet), 2, 0.5, 999);
    for (std::size_t i = 0; i < out.size(); i += 2) {
        ASSERT_THAT(out[i + 1], DoubleNear(0.1 * out[i], 1e-12));
    }
}

TEST(PortableMath, AgreesWithTheLibrary) {
    for (double x : {-30.0, -1.0, -0.3466, -1e-9, 0.0, 0.2, 1.0, 7.7, 300.0}) {
        EXPECT_THAT(portable_exp(x) / std::exp(x), DoubleNear(1, 1e-14)) << x;
    }
    for (double x : {-3.75, -1.5, -1.0, -0.25, 0.0, 0.1, 0.5, 0.999, 2.5, 1001.3}) {
        EXPECT_THAT(portable_sin_pi(x), DoubleNear(std::sin(std::acos(-1.0) * x), 1e-12)) << x;
    }
    EXPECT_THAT(portable_amplitude(-20), DoubleNear(0.1, 1e-16));
}

TEST(Limiter, TellsHowMuchItTookForHowLong) {
    // 1 s at 0.1 and 1 s at 1.0 with a gain of 4 under 1: 12.04 dB for half of the time, and the
    // recovery (0.15 s to 1 / e) has an end that is cut off here.
    TruePeakLimiter limiter(1, 44100, 4, 1);
    std::vector<double> out;
    const Signal signal = signals::join({signals::sine(0.1, 441, 1), signals::sine(1, 441, 1)});
    limiter.process(signal.samples.data(), signal.samples.size(), out);
    limiter.finish(out);
    EXPECT_THAT(limiter.reductions().most_db(), DoubleNear(12.04, 0.03));
    EXPECT_THAT(limiter.reductions().share_above(6), DoubleNear(0.5, 0.01));
    EXPECT_THAT(limiter.reductions().share_above(13), DoubleNear(0, 1e-9));
    EXPECT_THAT(limiter.reductions().exceeded_by(0.25), DoubleNear(12.04, 0.1));
    EXPECT_THAT(limiter.reductions().exceeded_by(0.75), DoubleNear(0, 0.1));

    Reductions reductions;  // -6.94 dB, of which a lowered ceiling causes 1.94
    reductions.add(0.45, 0.8);
    EXPECT_THAT(reductions.most_db(), DoubleNear(6.94, 0.01));
    EXPECT_THAT(reductions.exceeded_by(0), DoubleNear(5.0, 0.01));
    EXPECT_EQ(0, reductions.share_above(6));
}

TEST(LocalCeilings, AreLoweredWhereCodingAddedAndBesideIt) {
    LocalCeilings ceilings(0, 0);  // limit and ceiling 1
    EXPECT_TRUE(ceilings.factors().empty());
    // Block 2 was rendered at 0.9 and coded at 1.2: 0.15 dB below the limit would have been
    // 0.98288 / 1.2 = 0.81907 of what was rendered. Its neighbours are not higher than it, except
    // for block 3, whose own peak is lowered by as much.
    ceilings.lower({0.5, 0.5, 1.2, 0.98, 0.5, 0.5}, {0.5, 0.6, 0.9, 0.95, 0.5, 0.5});
    const double expected[] = {1, 0.73716, 0.73716, 0.77812, 1, 1};
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_THAT(ceilings.factors()[i], DoubleNear(expected[i], 1e-5)) << i;
    }
    EXPECT_THAT(ceilings.lowest_db(), DoubleNear(to_db(0.73716), 1e-4));
    // The second time 0.3 dB (0.96605) are asked for, where a block is above or 0.05 dB below.
    ceilings.lower({0.5, 0.5, 0.9, 0.5, 0.99, 0.997}, {0.5, 0.5, 0.74, 0.65, 0.9, 0.9});
    EXPECT_THAT(ceilings.factors()[3], DoubleNear(0.77812, 1e-5));
    EXPECT_THAT(ceilings.factors()[4], DoubleNear(0.9 * 0.96605 / 0.997, 1e-5));
    EXPECT_THAT(ceilings.factors()[5], DoubleNear(0.9 * 0.96605 / 0.997, 1e-5));
}

TEST(Limiter, KeepsALoweredCeilingWhereItIsAndOnlyThere) {
    const Signal sine = signals::sine(1, 500, 2, 16000);
    std::vector<double> lowered(20, 1.0);  // of 50 ms
    lowered[10] = 0.5;
    TruePeakLimiter limiter(1, 16000, 1, 0.8, lowered);
    std::vector<double> out;
    limiter.process(sine.samples.data(), sine.samples.size(), out);
    limiter.finish(out);
    const auto peak = [&](std::size_t from, std::size_t to) {
        double greatest = 0;
        for (std::size_t i = from; i < to; ++i) {
            greatest = std::max(greatest, std::fabs(out[i]));
        }
        return greatest;
    };
    EXPECT_THAT(peak(8000, 8800), Le(0.4));
    EXPECT_THAT(peak(0, 7800), DoubleNear(0.8, 0.001));
    EXPECT_THAT(peak(16000, 32000), DoubleNear(0.8, 0.001));
}

}  // namespace
}  // namespace quorvane
