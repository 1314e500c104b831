#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "Common/reduce_loud/reduce_loud.h"
#include "Common/reduce_loud_peak/reduce_loud_peak.h"
#include "tests/support/signals.h"
#include "tests/support/step_test.h"

namespace {

using testing::HasSubstr;
using Entry = int (*)(int, const char**);

constexpr int kBin = 50;  // frames in a bin of 50 ms

/** One bin of a square wave per level: peak and RMS of a bin are its level. */
Signal bins(const std::vector<double>& levels) {
    std::vector<Signal> parts;
    for (const double level : levels) {
        parts.push_back(signals::square(level, kBin, kMillisecondRate));
    }
    return signals::join(parts);
}

class LoudReduction : public StepTest {
  protected:
    int run(Entry entry, const Signal& input, const std::vector<std::string>& options = {}) {
        write_sound(dir / "in.wav", input);
        const int result = run_step(entry, {"step", dir / "in.wav", dir / "out.wav"}, options);
        if (result == 0) {
            output = read_sound(dir / "out.wav");
        }
        return result;
    }

    /** The gain at the start of each bin of a file of bins, over the gain of the first. */
    std::vector<double> walls(const Signal& input) const {
        std::vector<double> gains;
        for (std::size_t i = 0; i < input.samples.size(); i += kBin) {
            gains.push_back(output.samples[i] / input.samples[i]);
        }
        const double first = gains.front();
        for (double& gain : gains) {
            gain /= first;
        }
        return gains;
    }

    Signal output;
};

TEST_F(LoudReduction, ABinWithAHighPeakIsLoweredAndTheWholeScaledToFullScale) {
    // Mean RMS sqrt((9 * 0.01 + 0.25) / 10) = 0.184391; 6 dB above: 0.367908. The loud bin gets
    // 0.367908 / 0.5 = 0.735815, its peak 0.367908 is then the largest: the scale is 2.718073.
    const Signal input = bins({.1, .1, .1, .1, .1, .5, .1, .1, .1, .1});
    ASSERT_EQ(0, run(reduce_loud_peak::_tmain, input, {"-l", "6"}));
    EXPECT_NEAR(0.2718073, output.samples[0], 1e-6);
    EXPECT_NEAR(1.0, output.samples[5 * kBin + 20], 1e-12);
    // Bin 4 runs from 1 to 0.735815, a fiftieth a frame; halfway it stands at their mean.
    EXPECT_NEAR(0.2718073 * (1.0 + 0.735815) / 2, output.samples[4 * kBin + 24], 0.2718073 * 0.006);
    EXPECT_NEAR(-output.samples[0], output.samples[7 * kBin + 1], 1e-12);
    EXPECT_EQ(0.26F, progress.fractions().back());
}

TEST_F(LoudReduction, WallsRiseOverAttackAndReleaseAndOverlapsKeepTheLower) {
    // Twelve bins, two of them loud. Mean sqrt((10 * 0.01 + 2 * 0.25) / 12) = 0.223607, 3 dB above:
    // 0.315853 (factor 1.412538), so both get g = 0.631705. Release 100 ms is 2 bins, attack 50 ms
    // is 1: steps of (1 - g) / 3 after and (1 - g) / 2 before.
    const Signal input = bins({.1, .1, .1, .5, .1, .1, .1, .5, .1, .1, .1, .1});
    ASSERT_EQ(0, run(reduce_loud::_tmain, input, {"-l", "3", "-r", "100", "-a", "50"}));
    const double g = 0.631705;
    const double up = (1 - g) / 3;
    const double before = (1 - g) / 2;
    const std::vector<double> expected{
        1, 1, g + before, g,          g, g + up, std::min(g + 2 * up, g + before),
        g, g, g + up,     g + 2 * up, 1};
    EXPECT_THAT(walls(input), testing::Pointwise(testing::DoubleNear(1e-5), expected));
}

TEST_F(LoudReduction, PassagesAreJudgedByTheirLoudnessNotTheirPeaks) {
    Signal input = bins({.1, .1, .1, .1, .1, .1});
    input.samples[2 * kBin + 10] =
        0.5;  // the bin's RMS grows to sqrt((49 * .01 + .25) / 50) = 0.122
    ASSERT_EQ(0, run(reduce_loud::_tmain, input));
    EXPECT_NEAR(1.0, output.samples[2 * kBin + 10], 1e-12);
    EXPECT_NEAR(0.2, output.samples[0], 1e-12) << "scaled alone";
    ASSERT_EQ(0, run(reduce_loud_peak::_tmain, input, {"-l", "3"}));
    EXPECT_LT(output.samples[2 * kBin + 10] / output.samples[0], 2.0) << "the peak was lowered";
}

TEST_F(LoudReduction, AStereoBinIsAsLoudAsItsLouderChannel) {
    // Left: one bin at 0.4 among bins of 0.2; right silent. Bins' RMS 0.2 and 0.4, not halved in
    // power; mean over all samples sqrt((9 * .04 + .16) / 20) = 0.161245, 3 dB above: 0.227765.
    const Signal left = bins({.2, .2, .2, .4, .2, .2, .2, .2, .2, .2});
    const Signal input = signals::stereo(left, signals::silence(left.frames(), kMillisecondRate));
    ASSERT_EQ(0, run(reduce_loud::_tmain, input, {"-r", "0"}));
    // The loud bin is brought to 0.227765, against 0.2 of the others: then it is the largest peak.
    EXPECT_NEAR(1.0, output.samples[2 * (3 * kBin + 20)], 1e-12);
    EXPECT_NEAR(0.2 / 0.227765, output.samples[0], 1e-5);
}

TEST_F(LoudReduction, QuietBinsTakeNoPartInTheMean) {
    // -44 dB is 0.00631: with the bins of 0.001 the mean would be far lower and 0.1 reduced.
    const Signal input = bins({.1, .001, .001, .001, .1, .001, .1});
    ASSERT_EQ(0, run(reduce_loud::_tmain, input));
    EXPECT_THAT(walls(input), testing::Each(testing::DoubleNear(1.0, 1e-12)));
}

TEST_F(LoudReduction, InAShortLastBinTheRampStopsShortOfItsWall) {
    // The last bin holds 10 frames and is the loud one's neighbour: it starts at the gain g of the
    // loud bin's wall and climbs by fiftieths of 1 - g, not by tenths.
    Signal input = bins({.1, .1, .1, .1, .1, .1, .1, .1, .5});
    input = signals::join({input, signals::square(0.1, 10, kMillisecondRate)});
    ASSERT_EQ(0, run(reduce_loud::_tmain, input, {"-r", "0"}));
    const double scale = output.samples[0] / 0.1;
    const double g = output.samples[9 * kBin] / 0.1 / scale;
    EXPECT_LT(g, 0.9);
    EXPECT_NEAR(g + 9 * (1 - g) / 50, -output.samples[9 * kBin + 9] / 0.1 / scale, 1e-12);
}

TEST_F(LoudReduction, FailuresAreReportedWhereTheStepReports) {
    const std::string file = dir / "in.wav";
    const Signal quiet = bins({.005, .006, .0});
    EXPECT_EQ(1, run(reduce_loud_peak::_tmain, quiet));
    EXPECT_EQ(file + " is silent\n", err);
    EXPECT_EQ(1, run(reduce_loud::_tmain, quiet));
    EXPECT_EQ(file + " is silent\n", out);
    EXPECT_FALSE(file_exists(dir / "out.wav"));

    EXPECT_EQ(1, run(reduce_loud::_tmain, signals::silence(0, kMillisecondRate)));
    EXPECT_EQ(file + " is silent\n", out);
    EXPECT_EQ(1, run(reduce_loud_peak::_tmain, signals::square(.5, 100, kMillisecondRate, 3)));
    EXPECT_EQ("reduce_loud_peak: cannot process more than 2 channels; " + file + " has 3\n", err);
    for (const char* bin_ms : {"0", "-50"}) {
        EXPECT_EQ(1, run(reduce_loud::_tmain, bins({.5}), {"-s", bin_ms}));
        EXPECT_THAT(out, HasSubstr("bins shorter than a frame"));
    }
}

TEST_F(LoudReduction, APositiveNoiseFloorIsTakenAsNegative) {
    const char* warning =
        "Warning: Specified noise floor was positive.  Value has been changed to -44.00.\n";
    const Signal input = bins({.1, .3, .001});
    ASSERT_EQ(0, run(reduce_loud_peak::_tmain, input));
    const std::vector<double> with_negative = output.samples;
    ASSERT_EQ(0, run(reduce_loud_peak::_tmain, input, {"-f", "44"}));
    EXPECT_EQ(warning, err);
    EXPECT_EQ(with_negative, output.samples);
    ASSERT_EQ(0, run(reduce_loud::_tmain, input, {"-f", "44"}));
    EXPECT_EQ(warning, out);
}

}  // namespace
