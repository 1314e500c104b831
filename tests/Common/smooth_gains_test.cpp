#include "Common/smooth_gains/smooth_gains.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Common/reporting/failure.h"
#include "tests/support/step_test.h"

namespace {

class SmoothGains : public StepTest {
  protected:
    std::string run(const std::string& gains, const std::vector<std::string>& options) {
        write_text(dir / "gains.txt", gains);
        result = run_step(smooth_gains::_tmain,
                          {"smooth_gains", dir / "gains.txt", dir / "smoothed.txt"}, options);
        return read_text(dir / "smoothed.txt");
    }

    int result = -1;
};

TEST_F(SmoothGains, RisesAndFallsTakeTheirTime) {
    struct Row {
        const char* name;
        const char* gains;
        std::vector<std::string> options;
        const char* smoothed;
    };

    const Row rows[] = {
        {"one value", "2\n", {"-a", "4"}, "2\n"},
        {"a rise of 4 in 4", "1\n5\n5\n5\n5\n5\n", {"-a", "4"}, "1\n2\n3\n4\n5\n5\n"},
        // After the ramp to 5 has reached it, the next value starts another towards 9.
        {"keeps its first target",
         "1\n5\n9\n9\n9\n9\n9\n9\n9\n",
         {"-a", "4", "-b", "1"},
         "1\n2\n3\n4\n5\n6\n7\n8\n9\n"},
        {"a fall in the middle of a ramp",
         "1\n5\n5\n2\n2\n",
         {"-a", "4", "-b", "1"},
         "1\n2\n3\n2\n2\n"},
        {"a fall starts ahead", "5\n5\n5\n1\n1\n", {"-a", "40", "-b", "2"}, "5\n5\n3\n1\n1\n"},
        {"attacks of 1 change nothing", "1\n9\n2\n", {"-a", "1", "-b", "1"}, "1\n9\n2\n"},
        // Zeros and lines without a number are dropped, and the series is shorter by them.
        {"dropped lines", "3\n\n0\nx\n3\n0.0\n4", {"-a", "1", "-b", "1"}, "3\n3\n4\n"},
        // 0.1 is not a double: the nearest one's exact value is written.
        {"exact", "0.1\n", {}, "0.1000000000000000055511151231257827021181583404541015625\n"},
        {"small",
         "0.00001\n",
         {},
         "1.0000000000000000818030539140313095458623138256371021270751953125e-05\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.smoothed, run(row.gains, row.options));
        EXPECT_EQ(0, result);
    }
}

// A ramp of tenths ends 1e-16 below its target: what is left of the rise must not hold back the
// next.
TEST_F(SmoothGains, ARiseThatIsRoundingMayEndAtOnce) {
    const std::vector<double> gains = {0.1, 0.9, 0.9, 0.9, 0.9, 2, 2, 2, 2, 2};
    std::vector<double> kept(gains.size());
    std::vector<double> ended(gains.size());
    const auto count = static_cast<unsigned int>(gains.size());
    smooth_gains::SmoothGains1(gains.data(), kept.data(), count, 3);
    smooth_gains::SmoothGains1(gains.data(), ended.data(), count, 3,
                               smooth_gains::FlatRamp::kEndAtTarget);
    EXPECT_LT(kept[3], 0.9);
    EXPECT_EQ(0.9, ended[4]);
    EXPECT_NEAR(2, ended[7], 1e-12);
    EXPECT_LT(kept[7], 1.6);
}

TEST_F(SmoothGains, ALineOfMoreThan255CharactersEndsTheSeries) {
    const std::string longest = "2" + std::string(254, ' ');
    EXPECT_EQ("1\n2\n3\n", run("1\n" + longest + "\n3\n", {"-a", "1", "-b", "1"}));
    EXPECT_EQ("1\n", run("1\n" + longest + " \n3\n", {"-a", "1", "-b", "1"}));
}

TEST_F(SmoothGains, AGainThatIsNoFiniteNumberIsPassedOnAsADefect) {
    reporting::forget_defect();
    EXPECT_EQ("1\nnan\ninf\n", run("1\nnan\ninf\n", {"-a", "1", "-b", "1"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ(reporting::DefectKind::kNotFinite, reporting::first_defect().kind);
    EXPECT_THAT(reporting::first_defect().text, testing::HasSubstr(dir / "gains.txt"));
    reporting::forget_defect();
}

TEST_F(SmoothGains, FailuresAreLogged) {
    run("0\n\n", {});
    EXPECT_EQ("error: no gains in " + dir / "gains.txt" + "\n", out);
    run("1\n", {"-a", "0"});
    EXPECT_EQ("error: an attack must be at least 1\n", out);
    run("1\n", {"-b", "x"});
    EXPECT_THAT(out, testing::StartsWith("error: "));
    run("1\n", {"--help"});
    EXPECT_THAT(out, testing::StartsWith("smooth_gains:"));
    EXPECT_FALSE(file_exists(dir / "smoothed.txt"));
    EXPECT_EQ(1, result);

    const CapturedOutput captured;
    EXPECT_EQ(1, call(smooth_gains::_tmain, {"smooth_gains", dir / "none", dir / "out"}));
    EXPECT_EQ("Error opening " + dir / "none" + "\n", captured.out());
}

}  // namespace
