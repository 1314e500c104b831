#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
#include "tests/support/fixtures.h"

namespace {

using testing::ElementsAre;

TEST(Log, PrintsTheTextAloneOnALine) {
    const CapturedOutput captured;
    log_msg("Common/level", 334, "Step 1 did not complete successfully");
    EXPECT_EQ("Step 1 did not complete successfully\n", captured.out());
}

TEST(Failure, TheFirstIsKeptAndItsWordsAreMarkedAsTheCause) {
    struct Heard {
        std::string cause;
        std::string others;
    } heard;

    reporting::forget_failure();
    reporting::set_message_sink([&](const reporting::Words& words) {
        (words.is_cause ? heard.cause : heard.others) += words.text;
    });
    log_msg("Common/test", 1, "reading");
    log_failure("Common/test", 2, "the first", reporting::Kind::kSystem);
    reporting::say_failure(reporting::Kind::kOther, "a later one");
    reporting::set_message_sink(nullptr);
    EXPECT_EQ("the first", reporting::first_failure().text);
    EXPECT_EQ(reporting::Kind::kSystem, reporting::first_failure().kind);
    EXPECT_EQ("the first\n", heard.cause);
    EXPECT_EQ("reading\na later one\n", heard.others);
    reporting::forget_failure();
}

TEST(Progress, MapsTheStepOntoItsRangeAndReportsEachPercentOnceAndForwards) {
    ProgressRecorder recorder;
    CProgress progress(91, 95);
    for (const double fraction : {0.0, 0.5, 0.5, 0.25, 1.0}) {
        progress.show(fraction);
    }
    EXPECT_THAT(recorder.fractions(), ElementsAre(0.91F, 0.93F, 0.95F));
}

TEST(Progress, WithoutACallbackIsShownInPlace) {
    const CapturedOutput captured;
    CProgress progress(0, 100, nullptr, nullptr);
    progress.show(0.07);
    progress.show(1.0);
    EXPECT_EQ("\r7%\r100%", captured.out());
}

TEST(Progress, EndsACancelledRun) {
    CProgress progress(0, 100, nullptr, nullptr);
    gCancelled = 1;
    EXPECT_THROW(progress.show(0.5), ss_cancel_exception);
    gCancelled = 0;
    const CapturedOutput captured;
    EXPECT_NO_THROW(progress.show(0.5));
}

}  // namespace
