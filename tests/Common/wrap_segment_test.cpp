#include "Common/wrap_segment/wrap_segment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "Common/CommandLine.h"
#include "Common/reporting/failure.h"
#include "tests/support/fixtures.h"

namespace {

const std::string kHeader =
    std::string("\x03 ") +
    "CueListTool 1.3 file - do not edit unless you know exactly what you do!\nPrefix=\n";

class WrapSegment : public testing::Test {
  protected:
    WrapSegment() {
        options::tolerance = "0.01";
        options::min_segment_length = "2";
    }

    ~WrapSegment() override {
        options::tolerance = "3.5";
        options::min_segment_length = "20";
        options::chunk_size = "2400";
    }

    /** count bins of each level, in turn. */
    int run(const std::vector<std::pair<int, const char*>>& levels,
            double quiet_delta = -12.0,
            int rate = 44100) {
        std::string text;
        for (const auto& [count, level] : levels) {
            for (int i = 0; i < count; ++i) {
                text += std::string(level) + "\n";
            }
        }
        write_text(dir / "rms.txt", text);
        const CapturedOutput captured;
        const int result = wrap_segment::wrap_segment(dir / "rms.txt", "", "", dir / "cues.clt",
                                                      quiet_delta, rate, 0.05);
        messages = captured.out();
        return result;
    }

    TempDir dir;
    std::string messages;
    ProgressRecorder progress;
};

TEST_F(WrapSegment, CuesStandAtTheFirstLoudBinsOfNewLevels) {
    // Quiet bins are left out: the first change falls on bin 100, after the pause, not on 90.
    ASSERT_EQ(0, run({{90, "-20"}, {10, "-60"}, {150, "-26"}, {50, "-20"}}));
    EXPECT_EQ(kHeader + "44100\n220500\n0\n\n\n\n551250\n0\n\n\n\n", read_text(dir / "cues.clt"));
    EXPECT_EQ(0.69F, progress.fractions().back());
}

TEST_F(WrapSegment, ASteadyRecordingHasNoCues) {
    ASSERT_EQ(0, run({{300, "-23.456789012345"}}, -12.0, 22050));
    EXPECT_EQ(kHeader + "22050\n", read_text(dir / "cues.clt"));
    EXPECT_EQ(74u, kHeader.find('\n') + 1);
}

TEST_F(WrapSegment, EveryChunkOfLoudBinsStartsASegment) {
    options::chunk_size = "60";
    // 20 quiet bins come first: loud bin 60 is bin 80. At 22050 Hz a bin holds 1102 frames.
    ASSERT_EQ(0, run({{20, "-90"}, {100, "-20"}}, -12.0, 22050));
    EXPECT_EQ(kHeader + "22050\n88160\n0\n\n\n\n", read_text(dir / "cues.clt"));
}

TEST_F(WrapSegment, TheThresholdFollowsTheMeanAmplitude) {
    // Amplitudes 1 and 0.1: the mean 0.55 is -5.19 dB, so -17.19 is the limit: a mean of the dB
    // values, -10, would put it at -22 and keep the bins at -20.
    ASSERT_EQ(0, run({{50, "0"}, {50, "-20"}}));
    EXPECT_EQ(kHeader + "44100\n", read_text(dir / "cues.clt"));
    ASSERT_EQ(0, run({{50, "0"}, {50, "-16"}}));
    EXPECT_NE(kHeader + "44100\n", read_text(dir / "cues.clt"));
}

TEST_F(WrapSegment, ACueListThatCannotBeOpenedIsADefect) {
    std::filesystem::create_directory(dir / "cues.clt");
    reporting::forget_defect();
    EXPECT_EQ(0, run({{50, "-20"}}));
    EXPECT_EQ("", messages);
    EXPECT_THAT(reporting::first_defect().text, testing::HasSubstr(dir / "cues.clt"));
    reporting::forget_defect();
}

TEST_F(WrapSegment, FailuresAreLoggedAndEndTheStep) {
    EXPECT_EQ(1, run({{5, "-20"}}, 0.1));
    EXPECT_EQ("error: quiet_delta must be negative\n", messages);
    EXPECT_EQ(1, run({}));
    EXPECT_EQ("error: no levels in " + dir / "rms.txt" + "\n", messages);
    EXPECT_EQ(1, run({{5, "-20"}}, 0.0)) << "no bin is above the mean";
    EXPECT_THAT(messages, testing::HasSubstr("above the threshold"));
    options::chunk_size = "many";
    EXPECT_EQ(1, run({{5, "-20"}}));
    EXPECT_FALSE(file_exists(dir / "cues.clt"));
}

}  // namespace
