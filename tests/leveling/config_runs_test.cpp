#include <filesystem>

#include "tests/support/batch_run.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

TEST_F(BatchRun, DefaultsOfFilesCountForTheCommandForPeopleAlone) {
    talk("in/a.wav");
    std::filesystem::create_directories(dir_ / "config/quorvane");
    write_text(dir_ / "config/quorvane/quorvane.conf", "output-dir = out\n");
    write_text(dir_ / "in/quorvane.conf", "suffix = -ready\nbit-depth = 24\n");

    const ProgramResult shown = run("--show-config in");
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_THAT(shown.out, HasSubstr("config/quorvane/quorvane.conf, line 1)"));
    EXPECT_THAT(shown.out, HasSubstr("in/quorvane.conf: read"));
    EXPECT_FALSE(file_exists(dir_ / "out"));

    const ProgramResult leveled = run("in");
    EXPECT_EQ(leveled.status, 0) << leveled.err;
    EXPECT_THAT(outputs_in("out"), ElementsAre("a-ready.wav"));
    // What took effect is in the record, so that other options are noticed.
    EXPECT_THAT(read_text(dir_ / "out/.quorvane.jsonl"), HasSubstr("--bit-depth=24"));

    write_text(dir_ / "in/quorvane.conf", "output-dir = /\n");
    const ProgramResult refused = run("in");
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("in/quorvane.conf, line 1: "));
    EXPECT_EQ(run("--input-file in/a.wav --output-file engine.wav").status, 0);
    EXPECT_THAT(run("merge none.jsonl").err, testing::Not(HasSubstr("quorvane.conf")));
    EXPECT_EQ(run("--no-config in").status, 0);
    EXPECT_TRUE(file_exists(dir_ / "in/a-leveled.wav"));
}

}  // namespace
