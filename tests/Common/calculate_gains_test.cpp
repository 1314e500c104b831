#include "Common/calculate_gains/calculate_gains.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "Common/calculate_gains/CalcRMS.h"
#include "Common/files/series.h"
#include "Common/reporting/failure.h"
#include "tests/support/signals.h"
#include "tests/support/step_test.h"

namespace {

using testing::ElementsAre;

/** The gated RMS as a buffer of the last samples and its maximum define it. */
double gated_rms(const std::vector<double>& samples, std::size_t buffer, double threshold) {
    std::vector<double> last(buffer, 0.0);
    double sum = 0.0;
    int count = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        last[i % buffer] = std::fabs(samples[i]);
        if (*std::max_element(last.begin(), last.end()) > threshold) {
            sum += samples[i] * samples[i];
            ++count;
        }
    }
    return count == 0 ? 0.0 : std::sqrt(sum / count);
}

TEST(GatedRms, CountsWhatAMaximumOfTheLastSamplesWouldCount) {
    const TempDir dir;
    std::mt19937 random(3);
    std::vector<Signal> inputs{signals::silence(100, kMillisecondRate),
                               signals::square(0.5, 7, kMillisecondRate)};
    Signal decay =
        signals::from([](long long i) { return std::pow(0.99, i); }, 3000, kMillisecondRate);
    inputs.push_back(decay);
    for (int round = 0; round < 20; ++round) {
        inputs.push_back(
            signals::from([&random](long long) { return random() % 9 == 0 ? 0.3 : 0.001; }, 500,
                          kMillisecondRate));
    }
    for (const Signal& input : inputs) {
        write_sound(dir / "in.wav", input);
        for (const std::size_t buffer : {1u, 2u, 6u, 40u}) {
            for (const double threshold : {0.006, -1.0, 0.3}) {
                SF_INFO info;
                const SoundHandle handle = open_sound_for_reading(dir / "in.wav", info);
                ASSERT_EQ(
                    gated_rms(input.samples, buffer, threshold),
                    calculate_gains::CalcRMS_GW(handle, input.frames(),
                                                static_cast<std::uint32_t>(buffer), threshold))
                    << buffer << " " << threshold;
            }
        }
    }
}

class CalculateGains : public StepTest {
  protected:
    int run(const Signal& input,
            const std::vector<long long>& cues,
            const std::vector<std::string>& options = {}) {
        write_sound(dir / "in.wav", input);
        std::string cue_list = "header\nPrefix=\n1000\n";
        for (const long long cue : cues) {
            cue_list += std::to_string(cue) + "\n0\n\n\n\n";
        }
        write_text(dir / "cues.clt", cue_list);
        return run_step(calculate_gains::_tmain,
                        {"calculate_gains", dir / "in.wav", dir / "cues.clt", dir / "gains.txt",
                         dir / "levels.txt"},
                        options);
    }

    /** The gains file as runs: how many bins have which gain. */
    std::vector<std::pair<int, double>> gains() const {
        std::vector<std::pair<int, double>> runs;
        for (const double gain : read_series(dir / "gains.txt")) {
            if (runs.empty() || runs.back().second != gain) {
                runs.emplace_back(0, gain);
            }
            ++runs.back().first;
        }
        return runs;
    }
};

// Levels 0.1 and 0.5 are -20 and -6.0206 dB; their mean -13.0103, so +-6.9897 dB, which is a gain
// of 2.23607 and of 0.447214 (six digits are written, from levels of two decimals: 6.99 and -6.99).
TEST_F(CalculateGains, BringsEachSegmentToTheMean) {
    const Signal input = signals::join(
        {signals::square(0.1, 500, kMillisecondRate), signals::square(0.5, 520, kMillisecondRate)});
    ASSERT_EQ(0, run(input, {500}));
    EXPECT_EQ("-20.00\n-6.02\n", read_text(dir / "levels.txt"));
    // -20 + 13.0103 = -6.9897; -6.02 + 13.0103 = 6.9903: 10^(6.9897/20), 10^(-6.9903/20).
    EXPECT_THAT(gains(), ElementsAre(testing::Pair(10, testing::DoubleNear(2.23607, 1e-5)),
                                     testing::Pair(11, testing::DoubleNear(0.447183, 1e-5))));
    EXPECT_EQ(0.82F, progress.fractions().back());
}

TEST_F(CalculateGains, TheLastSegmentReachesAFrameBeyondTheEnd) {
    // 500 frames are ten bins exactly: with the one frame more it is eleven.
    ASSERT_EQ(0, run(signals::square(0.5, 500, kMillisecondRate), {}));
    EXPECT_THAT(gains(), ElementsAre(testing::Pair(11, testing::DoubleNear(1.0, 1e-3))));
}

TEST_F(CalculateGains, CuesRoundToBinsHalvesUpwards) {
    const Signal input = signals::join(
        {signals::square(0.1, 500, kMillisecondRate), signals::square(0.5, 510, kMillisecondRate)});
    for (const auto& [cue, bins] : {std::pair<long long, int>{474, 9}, {475, 10}, {524, 10}}) {
        ASSERT_EQ(0, run(input, {cue}));
        EXPECT_EQ(bins, gains().front().first) << cue;
    }
}

TEST_F(CalculateGains, TheLimitIsSoftAndItsSignDoesNotMatter) {
    // -6 dB and -86 dB: 40 dB from the mean. 24 tanh(40 / 24) = 22.346 dB: gains 13.10 and 0.07635.
    const Signal input = signals::join({signals::square(0.5, 500, kMillisecondRate),
                                        signals::square(0.00005, 510, kMillisecondRate)});
    for (const char* limit : {"24", "-24"}) {
        ASSERT_EQ(0, run(input, {500}, {"-l", limit, "-t", "0.00001"}));
        EXPECT_THAT(gains(), ElementsAre(testing::Pair(10, testing::DoubleNear(0.07635, 1e-4)),
                                         testing::Pair(11, testing::DoubleNear(13.10, 1e-2))));
    }
    ASSERT_EQ(0, run(input, {500}, {"-l", "0", "-t", "0.00001"}));
    EXPECT_THAT(gains(), ElementsAre(testing::Pair(21, 1.0)));
}

TEST_F(CalculateGains, ASilentSegmentLeavesTheLastOnesWithoutGains) {
    const Signal input = signals::join({signals::square(0.5, 500, kMillisecondRate),
                                        signals::silence(500, kMillisecondRate),
                                        signals::square(0.5, 510, kMillisecondRate)});
    ASSERT_EQ(0, run(input, {500, 1000}, {"-l", "24"}));
    EXPECT_EQ("-6.02\n-200.00\n-6.02\n", read_text(dir / "levels.txt"));
    // Two levels are read back: the first segment's and the silent one's, which ends at its own
    // cue. -200 + 6.0206 limits to -24 dB: a gain of 15.85.
    EXPECT_THAT(gains(), ElementsAre(testing::Pair(10, testing::DoubleNear(1.0, 1e-3)),
                                     testing::Pair(10, testing::DoubleNear(15.849, 1e-3))));
}

TEST_F(CalculateGains, ABufferLengthJustBelowZeroIsTruncatedToZero) {
    const Signal input = signals::square(0.5, 500, kMillisecondRate);
    ASSERT_EQ(0, run(input, {}, {"-b", "0"}));
    const std::string gains_file = read_text(dir / "gains.txt");
    ASSERT_EQ(0, run(input, {}, {"-b", "-0.0009"}));
    EXPECT_EQ(gains_file, read_text(dir / "gains.txt"));
}

TEST_F(CalculateGains, CuesOutsideTheRecordingCountAsTheyStandWithinBounds) {
    const Signal input = signals::square(0.5, 500, kMillisecondRate);

    struct Row {
        std::vector<long long> cues;
        std::size_t gains;
    };

    // Both segments of the first row have gains to its cue: 20 bins, though the recording has 10.
    // An hour of bins is the bound.
    const Row rows[] = {
        {{1000}, 20}, {{4000000000000000000}, 72010}, {{-4000000000000000000}, 0}, {{250, -30}, 5}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.cues.front());
        reporting::forget_defect();
        EXPECT_EQ(0, run(input, row.cues));
        EXPECT_EQ(row.gains, read_series(dir / "gains.txt").size());
        EXPECT_THAT(reporting::first_defect().text, testing::HasSubstr("lies outside"));
    }
    reporting::forget_defect();
}

TEST_F(CalculateGains, FailuresAreLogged) {
    const auto attempt = [](const std::vector<std::string>& words) {
        const CapturedOutput captured;
        EXPECT_EQ(1, call(calculate_gains::_tmain, words));
        return captured.out();
    };
    const Signal input = signals::square(0.5, 500, kMillisecondRate);
    write_sound(dir / "in.wav", input);
    const std::string in = dir / "in.wav";
    const std::string none = dir / "no/file";
    EXPECT_EQ("Error opening " + none + "\n",
              attempt({"calculate_gains", none, "c", "g", dir / "r"}));
    EXPECT_EQ("error opening RMS file " + none + "\n",
              attempt({"calculate_gains", in, "c", "g", none}));
    EXPECT_EQ("error opening cue list file " + none + "\n",
              attempt({"calculate_gains", in, none, "g", dir / "r"}));
    EXPECT_THAT(attempt({"calculate_gains"}), testing::HasSubstr("wave file"));
    EXPECT_EQ(1, run(input, {}, {"-s", "0"}));
    EXPECT_THAT(out, testing::HasSubstr("shorter than a frame"));
    EXPECT_EQ(1, run(input, {}, {"-b", "-0.001"})) << "a memory of no sample";
    EXPECT_THAT(out, testing::HasSubstr("out of range"));
    for (const char* length : {"-1", "1e9", "1e300"}) {
        EXPECT_EQ(1, run(input, {}, {"-b", length}));
        EXPECT_THAT(out, testing::MatchesRegex("Error in allocating memory for pBufStart: .* "
                                               "\\(line [0-9]+\\)\nOut of memory.\n"));
    }
    EXPECT_EQ(
        1, call(calculate_gains::_tmain, {"calculate_gains", in, dir.path(), dir / "g", dir / "r"}))
        << "a folder in place of the cue list";
}

}  // namespace
