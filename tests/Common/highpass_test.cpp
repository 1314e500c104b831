#include "Common/highpass/highpass.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "Common/highpass/biquad.h"
#include "tests/support/signals.h"
#include "tests/support/step_test.h"

namespace {

/** Gain of a filter for a sine, once the start has died away. */
double gain_at(int type, double db, double corner_hz, double bandwidth, double frequency_hz) {
    biquad filter;
    EXPECT_TRUE(BiQuad_new(type, db, corner_hz, 48000.0, bandwidth, &filter));
    const Signal input = signals::sine(0.5, frequency_hz, 4.0, 48000);
    Signal output = input;
    for (double& sample : output.samples) {
        sample = BiQuad(sample, &filter);
    }
    return rms_of(output, 96000, 192000) / rms_of(input, 96000, 192000);
}

TEST(BiQuad, TypesHaveTheResponseThatTheyAreNamedFor) {
    struct Row {
        const char* name;
        int type;
        double db, frequency_hz, gain;
    };

    // At the corner a low- or high-pass has the gain Q, and 1/Q = 2 sinh(ln 2 / 2 * 2 octaves)
    // = 1.5 (below 1 kHz w0 / sin w0 is 1): 2/3. Far from it 1 or, two octaves down, about 1/16. A
    // peak of 6 dB is 10^(6/20) = 1.9953, and a shelf has that gain on its plateau.
    const Row rows[] = {
        {"high-pass, corner", highpass::kHighPass, 0, 500, 2.0 / 3},
        {"high-pass, above", highpass::kHighPass, 0, 12000, 1.0},
        {"high-pass, far below", highpass::kHighPass, 0, 5, 0.0001},
        {"low-pass, corner", highpass::kLowPass, 0, 500, 2.0 / 3},
        {"low-pass, below", highpass::kLowPass, 0, 10, 1.0},
        {"band-pass, centre", highpass::kBandPass, 0, 500, 1.0},
        {"notch, centre", highpass::kNotch, 0, 500, 0.0},
        {"peak, centre", highpass::kPeaking, 6, 500, 1.9953},
        {"low shelf, below", highpass::kLowShelf, 6, 5, 1.9953},
        {"low shelf, above", highpass::kLowShelf, 6, 20000, 1.0},
        {"high shelf, above", highpass::kHighShelf, 6, 20000, 1.9953},
    };
    for (const Row& row : rows) {
        EXPECT_NEAR(row.gain, gain_at(row.type, row.db, 500.0, 2.0, row.frequency_hz), 0.01)
            << row.name;
    }
}

class Highpass : public StepTest {
  protected:
    double run(const Signal& input,
               int format = kWavDouble,
               const std::vector<std::string>& options = {}) {
        write_sound(dir / "in.wav", input, format);
        return run_step(highpass::_tmain, {"highpass", dir / "in.wav", dir / "out.wav"}, options);
    }
};

TEST_F(Highpass, ReturnsTheLevelOfTheLouderChannelAndFiltersEachByItself) {
    // The corner lies at 62.5 Hz: 1 kHz passes. RMS 0.25 / sqrt(2), 20 log10 = -15.05 dB.
    const Signal quiet = signals::silence(88200);
    const Signal tone = signals::sine(0.25, 1000.0, 2.0);
    EXPECT_NEAR(-15.05, run(signals::stereo(quiet, tone)), 0.01);
    const Signal output = read_sound(dir / "out.wav");
    EXPECT_EQ(88200, output.frames());
    EXPECT_EQ(0.0, rms_of(output, 0, 88200, 0));
    EXPECT_NEAR(0.25 / std::sqrt(2.0), rms_of(output, 44100, 88200, 1), 1e-3);
    EXPECT_EQ(1.0F, progress.fractions().back() * 100.0F / 9.0F) << "its share ends at 9 %";

    // Rumble an octave and a half below the corner comes out at (20 / 62.5)^2 = 0.1 and less.
    run(signals::sine(0.25, 20.0, 2.0));
    EXPECT_LT(rms_of(read_sound(dir / "out.wav"), 44100, 88200), 0.11 * 0.25 / std::sqrt(2.0));
}

TEST_F(Highpass, ClipsToFullScale) {
    run(signals::sine(2.0, 1000.0, 0.5));
    EXPECT_EQ(1.0, peak_of(read_sound(dir / "out.wav")));
}

TEST_F(Highpass, SilenceGivesZeroAndSilence) {
    EXPECT_EQ(0.0, run(signals::silence(10000)));
    EXPECT_EQ(signals::silence(10000).samples, read_sound(dir / "out.wav").samples);
}

TEST_F(Highpass, RefusesWhatItCannotFilter) {
    EXPECT_EQ(0.0, run(signals::sine(0.5, 440.0, 0.1, 8000, 3), kWav16));
    EXPECT_EQ("highpass: cannot process more than 2 channels; " + dir / "in.wav" + " has 3\n", err);
    EXPECT_FALSE(file_exists(dir / "out.wav"));

    EXPECT_EQ(0.0, run(signals::sine(0.5, 440.0, 0.1), kWav16, {"-l", "0", "-g", "0"}));
    EXPECT_THAT(err, testing::HasSubstr("no filter can be built"));

    // Cutoffs the wrong way round: a negative bandwidth, an unstable filter.
    EXPECT_THROW(run(signals::sine(0.5, 440.0, 20.0), kWav16, {"-l", "280", "-g", "100"}),
                 std::runtime_error);
    for (const double sample : read_sound(dir / "out.wav").samples) {
        ASSERT_TRUE(std::isfinite(sample));
    }

    Signal broken = signals::sine(0.5, 440.0, 1.0);
    broken.samples[20000] = std::numeric_limits<double>::quiet_NaN();
    try {
        run(broken, kWavFloat);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(dir / "in.wav" + ": the sample in frame 20000 is not a number", error.what());
    }
}

}  // namespace
