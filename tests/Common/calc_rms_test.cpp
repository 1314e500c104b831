#include "Common/calc_rms/calc_rms.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "Common/reporting/failure.h"
#include "tests/support/signals.h"
#include "tests/support/step_test.h"

namespace {

class CalcRms : public StepTest {
  protected:
    std::string run(const Signal& input, const std::vector<std::string>& options = {}) {
        write_sound(dir / "in.wav", input);
        result = run_step(calc_rms::_tmain, {"calc_rms", dir / "in.wav", dir / "rms.txt"}, options);
        return read_text(dir / "rms.txt");
    }

    int result = -1;
};

TEST_F(CalcRms, WritesALinePerBin) {
    struct Row {
        const char* name;
        Signal signal;
        const char* text;
    };

    // 50 ms at 1 kHz are 50 frames. 0.1 is -20 dB; 20 log10 0.5 = -6.0205999132796.
    const Signal full = signals::square(1.0, 50, 1000);
    const Signal half = signals::square(0.5, 50, 1000);
    const Signal silence = signals::silence(50, 1000);
    const Row rows[] = {
        {"no frames", signals::silence(0, 1000), ""},
        {"full scale, half, silence", signals::join({full, half, silence}),
         "0.000000000000\n-6.020599913280\n-200.000000000000\n"},
        {"the last bin over what it holds",
         signals::join({silence, signals::square(0.5, 10, 1000)}),
         "-200.000000000000\n-6.020599913280\n"},
        // One channel at full scale, one silent: half the power, 10 log10 0.5 = -3.0102999566398.
        {"channels together", signals::stereo(full, silence), "-3.010299956640\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.text, run(row.signal));
        EXPECT_EQ(0, result);
    }
    EXPECT_EQ(0.35F, progress.fractions().back());
}

TEST_F(CalcRms, TheBinLengthWrapsAt32Bits) {
    // 100000 ms * 44100 Hz = 4410000000, less 2^32 = 115032704: bins of 115032 samples.
    EXPECT_EQ("-200.000000000000\n-200.000000000000\n",
              run(signals::silence(115033), {"-s", "100000"}));
}

TEST_F(CalcRms, ASampleThatIsNoNumberIsMeasuredAsADefect) {
    Signal input = signals::square(0.1, 150, kMillisecondRate);
    input.samples[70] = std::numeric_limits<double>::quiet_NaN();
    input.samples[120] = std::numeric_limits<double>::infinity();
    reporting::forget_defect();
    EXPECT_EQ("-20.000000000000\n           nan\n           inf\n", run(input));
    EXPECT_EQ(0, result);
    EXPECT_EQ(dir / "in.wav: the sample in frame 70 is not a number",
              reporting::first_defect().text);
    reporting::forget_defect();
}

TEST_F(CalcRms, FailuresAreSaid) {
    EXPECT_EQ("", run(signals::silence(100), {"-s", "0"}));
    EXPECT_EQ(1, result);
    EXPECT_EQ("A bin of " + dir / "in.wav" + " is shorter than a frame\n", out);

    const CapturedOutput captured;
    EXPECT_EQ(1, call(calc_rms::_tmain, {"calc_rms", dir / "none.wav", dir / "none.txt"}));
    EXPECT_EQ("Error opening " + dir / "none.wav" + "\n", captured.out());
    EXPECT_FALSE(file_exists(dir / "none.txt"));
    EXPECT_EQ(1, call(calc_rms::_tmain, {"calc_rms", dir / "in.wav", dir / "no/rms.txt"}));
    EXPECT_EQ("Error opening " + dir / "none.wav" + "\nError opening " + dir / "no/rms.txt" +
                  " for output\n",
              captured.out());
    EXPECT_EQ(1, call(calc_rms::_tmain, {"calc_rms", dir / "in.wav", "/dev/full", "-s", "1"}));
    EXPECT_THAT(captured.out(), testing::EndsWith("/dev/full: No space left on device\n"));
}

}  // namespace
