#include "leveling/publish/publish.h"

#include <gmock/gmock.h>

#include <cmath>

#include "leveling/audio/measure.h"
#include "leveling/audio/portable_math.h"
#include "leveling/audio/sound_file.h"
#include "leveling/publish/limiter.h"
#include "leveling/publish/local_ceilings.h"
#include "leveling/publish/true_peak.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::AllOf;
using testing::DoubleNear;
using testing::Each;
using testing::Ge;
using testing::Le;

namespace quorvane {
namespace {

double to_db(double value) {
    return 20 * std::log10(value);
}

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

double found_peak(const Signal& signal, std::size_t block) {
    TruePeakFinder finder(signal.channels, 0);
    Signal padded = signal;
    padded.samples.resize(signal.samples.size() + 64, 0.0);
    const auto frames = static_cast<std::size_t>(padded.frames());
    std::vector<double> peaks(frames);
    for (std::size_t at = 0; at < frames; at += block) {
        finder.find(padded.samples.data() + at * static_cast<std::size_t>(signal.channels),
                    std::min(block, frames - at), peaks.data() + at);
    }
    return *std::max_element(peaks.begin(), peaks.end());
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

class Publish : public testing::Test {
  protected:
    Published published(const char* word, const Signal& signal, int format, double gain = 1) {
        Signal scaled = signal;
        for (double& sample : scaled.samples) {
            sample *= gain;
        }
        write_sound(dir_ / "from", scaled, format);
        return publish(*find_destination(word), dir_ / "from", dir_ / "to", encode_, [](double) {});
    }

    TempDir dir_;
    Encode encode_ = [](const std::string& rendered) { return Reading{rendered, ""}; };
};

TEST_F(Publish, EachDestinationIsMetByWhatIsWritten) {
    const int formats[] = {kWav16, SF_FORMAT_FLAC | SF_FORMAT_PCM_24, kWavFloat};
    std::size_t row = 0;
    for (const Destination& destination : destinations()) {
        for (int channels : {1, 2}) {
            for (double gain : {0.1, 1.9}) {
                const int format = formats[row++ % std::size(formats)];
                SCOPED_TRACE(testing::Message() << destination.word << ", " << channels
                                                << " channels, format " << format << ", " << gain);
                const Published result = published(
                    destination.word.c_str(), signals::speech(8, 16000, channels), format, gain);
                const SndfileHandle before = open_to_read(dir_ / "from");
                const SndfileHandle after = open_to_read(result.path);
                EXPECT_EQ(before.frames(), after.frames());
                EXPECT_EQ(before.format(), after.format());
                EXPECT_THAT(destination.level_of(result.after),
                            DoubleNear(destination.target(channels), 0.11));
                EXPECT_THAT(to_db(true_peak_of(result.path)),
                            Le(destination.peak_limit_db + kPeakTolerance));
                EXPECT_EQ(measure(result.path, [](double) {}).loudness.true_peak_dbtp,
                          result.after.true_peak_dbtp);
            }
        }
    }
}

TEST_F(Publish, ThePeakHoldsInEightBitsToo) {
    const Published result =
        published("spotify", signals::speech(8, 16000), SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, 1.5);
    EXPECT_TRUE(check_destination(*find_destination("spotify"), result.after, 1).met());
}

TEST_F(Publish, WhatFitsAndWhatIsSilentStaysAsItIs) {
    // EBU Tech 3341: a stereo sine of 1 kHz with peaks at -23 dBFS is -23 LUFS loud.
    const Signal sine = signals::sine(std::pow(10, -23 / 20.0), 1000, 10, 48000, 2);
    EXPECT_EQ(dir_ / "from", published("broadcast", sine, kWavFloat).path);
    EXPECT_EQ(dir_ / "to", published("podcast", sine, kWavFloat).path);
    EXPECT_EQ(dir_ / "from", published("podcast", signals::silence(48000, 48000), kWav16).path);
}

TEST_F(Publish, MoreLimitingThanIsSoundIsNotDone) {
    // Short pulses: 1.5 ms of tone, ten times a second, far above their loudness.
    const Signal pulses = signals::from(
        [](long long i) {
            const auto at = static_cast<double>(i % 1600);
            return at < 24 ? 0.9 * std::sin(0.4 * at) : 0.0;
        },
        16 * 16000, 16000);
    const Published result = published("spotify", pulses, kWavFloat);
    EXPECT_TRUE(result.facts.held_back);
    EXPECT_THAT(result.facts.limited_share, Le(kMostLimitedShare));
    EXPECT_THAT(result.facts.most_limiting_db, Ge(5.9)) << "as near as is sound";
    EXPECT_FALSE(check_destination(*find_destination("spotify"), result.after, 1).met());
}

TEST_F(Publish, AnAudiobookAimsLowerForQuietPauses) {
    // Pauses 41 dB below the speech: at -20 dB RMS they are at -61 + 1.5, at -22 they pass.
    Signal signal = signals::join({signals::sine(0.2, 500, 6, 44100), signals::silence(22050),
                                   signals::sine(0.2, 500, 6, 44100)});
    for (std::size_t i = 6 * 44100; i < 6 * 44100 + 22050 + 8000; ++i) {
        signal.samples[i] += 0.0016 * std::sin(0.07 * static_cast<double>(i));
    }
    const Published result = published("audiobook", signal, kWavFloat);
    EXPECT_THAT(result.after.pauses_dbfs, Le(-60));
    // The levels are right; room tone is not made.
    for (const UnmetRule& rule :
         check_destination(*find_destination("audiobook"), result.after, 1).misses) {
        EXPECT_EQ("room tone", rule.what);
    }
}

TEST_F(Publish, AnEncoderThatAddsToPeaksGetsALowerCeiling) {
    encode_ = [this](const std::string& rendered) {
        SndfileHandle in = open_to_read(rendered);
        std::vector<double> samples(static_cast<std::size_t>(in.frames()));
        in.read(samples.data(), in.frames());
        Signal coded{in.samplerate(), 1, samples};
        for (double& sample : coded.samples) {
            sample *= 1 + std::fabs(sample) * 0.2;
        }
        write_sound(dir_ / "coded", coded, kWavFloat);
        return Reading{dir_ / "coded", ""};
    };
    Signal clicking = signals::speech(8, 16000);
    for (std::size_t i = 8000; i < clicking.samples.size(); i += 16000) {
        clicking.samples[i] = 2;
    }
    const Published result = published("spotify", clicking, kWavFloat);
    EXPECT_EQ(dir_ / "coded", result.path);
    EXPECT_THAT(result.facts.ceiling_dbtp, Le(-1.5));
    EXPECT_TRUE(check_destination(*find_destination("spotify"), result.after, 1).met());
}

TEST_F(Publish, WhatAnEncoderAddsAtOnePlaceIsTakenThereAlone) {
    constexpr std::size_t kBegin = 32000;
    constexpr std::size_t kEnd = 35200;
    encode_ = [&](const std::string& rendered) {
        Signal coded = read_sound(rendered);
        for (std::size_t i = kBegin; i < kEnd; ++i) {
            coded.samples[i] *= 1.4;
        }
        write_sound(dir_ / "coded", coded, kWavFloat);
        return Reading{dir_ / "coded", ""};
    };
    Signal clicking = signals::speech(8, 16000);
    for (std::size_t i = 8000; i < clicking.samples.size(); i += 16000) {
        clicking.samples[i] = 2;
    }
    clicking.samples[(kBegin + kEnd) / 2] = 2;
    const Published result = published("spotify", clicking, kWavFloat);
    EXPECT_THAT(result.after.integrated_lufs, DoubleNear(-14, 0.1));
    EXPECT_THAT(to_db(true_peak_of(result.path)), Le(-1 + kPeakTolerance));
    Signal elsewhere = read_sound(result.path);
    std::fill(elsewhere.samples.begin() + kBegin - 2400, elsewhere.samples.begin() + kEnd + 2400,
              0.0);
    EXPECT_THAT(to_db(found_peak(elsewhere, 4096)), Ge(-1.3)) << "the rest keeps its ceiling";
}

TEST_F(Publish, ThePeaksOfTheOtherDecoderHoldAsWell) {
    encode_ = [this](const std::string& rendered) {
        Signal other = read_sound(rendered);
        for (std::size_t i = 40000; i < 44000; ++i) {
            other.samples[i] *= 1.1;
        }
        write_sound(dir_ / "other", other, kWavFloat);
        return Reading{rendered, dir_ / "other"};
    };
    const Published result = published("spotify", signals::speech(8, 16000), kWavFloat, 1.5);
    EXPECT_TRUE(check_destination(*find_destination("spotify"), result.after, 1).met());
    EXPECT_THAT(to_db(true_peak_of(dir_ / "other")), Le(-1 + kPeakTolerance));
    EXPECT_THAT(result.after.integrated_lufs, DoubleNear(-14, 0.11));
}

TEST_F(Publish, WhatACoderTakesOrAddsIsMadeUpForWithinATenth) {
    // Coders change the level by up to half a decibel and add other peaks with each try.
    for (const double factor : {0.95, 1.06}) {
        std::uint64_t tries = 0;
        encode_ = [&](const std::string& rendered) {
            Signal coded = read_sound(rendered);
            ++tries;
            for (std::size_t i = 0; i < coded.samples.size(); ++i) {
                const std::uint64_t block = i / 160 * 7 + tries;
                coded.samples[i] *= factor * (block % 5 == 0 ? 1.04 : 1.0);
            }
            write_sound(dir_ / "coded", coded, kWavFloat);
            return Reading{dir_ / "coded", ""};
        };
        for (const Destination& destination : destinations()) {
            SCOPED_TRACE(testing::Message() << destination.word << " " << factor);
            tries = 0;
            const Published result =
                published(destination.word.c_str(), signals::speech(12, 16000), kWavFloat);
            EXPECT_THAT(destination.level_of(result.after),
                        DoubleNear(destination.target(1), 0.11));
            EXPECT_TRUE(check_destination(destination, result.after, 1).met() ||
                        destination.noise_floor_db);
            EXPECT_LE(tries, 6u);
        }
    }
}

}  // namespace
}  // namespace quorvane
