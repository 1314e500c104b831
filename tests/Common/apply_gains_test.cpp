#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Common/apply_gains/ag_common.h"
#include "Common/audio/frame_file.h"
#include "Common/reporting/failure.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

namespace {

class ApplyGains : public testing::Test {
  protected:
    Signal run(const Signal& input, const char* gains, int block_ms = 50) {
        write_sound(dir / "in.wav", input);
        write_text(dir / "gains.txt", gains);
        apply_gains::ApplyGains(block_ms, dir / "gains.txt", dir / "in.wav", dir / "out.wav");
        return read_sound(dir / "out.wav");
    }

    TempDir dir;
    ProgressRecorder progress;
};

TEST_F(ApplyGains, RunsFromGainToGainAndFadesOutAtTheEnd) {
    const Signal output = run(signals::square(0.5, 100, kMillisecondRate), "1\n1\n");
    for (std::size_t i = 0; i <= 50; ++i) {
        ASSERT_NEAR(i % 2 == 0 ? 1.0 : -1.0, output.samples[i], 1e-12) << i;
    }
    EXPECT_NEAR(-0.5, output.samples[75], 1e-12);
    EXPECT_NEAR(-0.02, output.samples[99], 1e-12) << "one step above silence";
    EXPECT_EQ(0.91F, progress.fractions().back());
}

TEST_F(ApplyGains, ScalesTheLargestSampleOfAnyChannelToFullScale) {
    // Gains 2 to 1 over the first block: the largest product, 0.8 * 2, is the right channel's
    // first.
    const Signal output = run(signals::stereo(signals::square(0.2, 100, kMillisecondRate),
                                              signals::square(0.8, 100, kMillisecondRate)),
                              "2\n1\n0.5\n");
    EXPECT_NEAR(0.25, output.samples[0], 1e-12);
    EXPECT_NEAR(1.0, output.samples[1], 1e-12);
    EXPECT_NEAR(0.5, output.samples[2 * 50 + 1], 1e-12);
    EXPECT_NEAR(1.0, peak_of(output), 1e-12);
}

TEST_F(ApplyGains, TheShorterOfAudioAndGainsEndsTheOutput) {
    const Signal input = signals::square(0.5, 130, kMillisecondRate);
    EXPECT_EQ(100, run(input, "1\n1\n").frames());
    EXPECT_EQ(130, run(input, "1\n1\n1\n1\n1\n").frames());
    EXPECT_EQ(0, run(input, "").frames());
    write_sound(dir / "in.aiff", input, SF_FORMAT_AIFF | SF_FORMAT_FLOAT);
    apply_gains::ApplyGains(50, dir / "none", dir / "in.aiff", dir / "out.aiff");
    EXPECT_EQ(0, sound_info(dir / "out.aiff").frames);
    EXPECT_EQ(50, run(input, "1\nend\n1\n").frames());
}

TEST_F(ApplyGains, ABlockIsTruncatedToWholeFrames) {
    // 50 ms at 22050 Hz are 1102.5 frames.
    EXPECT_EQ(1102, run(signals::square(0.5, 5000, 22050), "1\n").frames());
}

TEST_F(ApplyGains, SilenceStaysSilence) {
    const Signal input = signals::silence(100, kMillisecondRate);
    EXPECT_EQ(input.samples, run(input, "1\n1\n").samples);
}

TEST_F(ApplyGains, BlocksShorterThanAFrameGiveNoAudioAndADefect) {
    reporting::forget_defect();
    EXPECT_EQ(0, run(signals::square(0.5, 100, 10), "1\n").frames());
    EXPECT_THAT(reporting::first_defect().text, testing::HasSubstr("shorter than a frame"));
    reporting::forget_defect();
}

TEST_F(ApplyGains, FailuresAreThrown) {
    run(signals::square(0.5, 100, kMillisecondRate), "1\n");
    run(signals::silence(100, kMillisecondRate), "1\n");
    EXPECT_THROW(apply_gains::ApplyGains(50, dir / "gains.txt", dir / "none", dir / "out.wav"),
                 sf_open_input_err);
    EXPECT_THROW(apply_gains::ApplyGains(50, dir / "gains.txt", dir / "in.wav", dir / "no/out.wav"),
                 sf_open_output_err);
}

}  // namespace
