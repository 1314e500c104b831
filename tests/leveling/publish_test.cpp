#include "leveling/publish/publish.h"

#include <gmock/gmock.h>

#include <cmath>

#include "leveling/audio/measure.h"
#include "leveling/audio/sound_file.h"
#include "leveling/publish/true_peak.h"
#include "tests/support/fixtures.h"
#include "tests/support/peaks.h"
#include "tests/support/signals.h"

using testing::DoubleNear;
using testing::Ge;
using testing::Le;

namespace quorvane {
namespace {

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
