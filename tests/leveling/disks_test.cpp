#include <signal.h>

#include "tests/support/watch_run.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

/** Runs in a namespace of their own, where a folder is a small disk. */
class Disks : public WatchRun {
  protected:
    Disks() { fs::create_directories(dir_ / "disk"); }

    void SetUp() override {
        if (run_program("cd '" + dir_.path() + "' && " + with_disk("disk", 100) + "true").status) {
            GTEST_SKIP() << "no right to mount a disk in a namespace";
        }
    }

    /** Runs words where the watch sees its disk. */
    void inside(const std::string& words) const {
        const ProgramResult result =
            run_program("nsenter -U -m -t " + std::to_string(pid_) + " " + words);
        ASSERT_EQ(result.status, 0) << result.err;
    }

    /** A folder as the watch sees it. */
    fs::path seen(const std::string& folder) const {
        return "/proc/" + std::to_string(pid_) + "/root" + (dir_ / folder);
    }
};

TEST_F(Disks, AFullOneIsKnownByItsCodeWhicheverPartOfTheRunItStops) {
    // A tone compresses well, so that its temporary files are larger than expected.
    write_sound(dir_ / "in/tone.flac", signals::sine(0.2, 300, 40, 16000),
                SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    talk("in/talk.wav", 40);

    struct Row {
        const char* name;
        const char* variable;
        int kilobytes;
        const char* words;
        const char* cause;
    };

    const Row rows[] = {
        {"known before", "TMPDIR=disk", 500, "--plain in/tone.flac -d out",
         "the temporary files need"},
        {"engine", "TMPDIR=disk", 720, "--plain in/tone.flac -d out", "is full"},
        {"delivery", "TMPDIR=disk", 900, "--for podcast in/tone.flac -d out", "No space left"},
        {"output", "A=", 300, "in/talk.wav -d disk", "No space left"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const ProgramResult result = run_program("cd '" + dir_.path() + "' && " + row.variable +
                                                 " " + with_disk("disk", row.kilobytes) +
                                                 QUORVANE_AT_ONCE "--json - -q " + row.words);
        EXPECT_EQ(result.status, 1) << result.err;
        const auto json = nlohmann::json::parse(result.out.substr(0, result.out.find('\n')));
        EXPECT_EQ(json["status"], "failed") << json;
        EXPECT_THAT(json["cause"], HasSubstr(row.cause));
        EXPECT_EQ(json.value("no_room", false), true) << json["cause"];
    }
}

TEST_F(Disks, AWatchWaitsForRoomReportsItOnceAndGoesOn) {
    talk("talk.wav", 4);
    start("-d disk -j 1", with_disk("disk", 3000));
    const fs::path disk = seen("disk");
    write_text(disk / "filler", std::string(2950000, 'x'));
    for (const char* name : {"in/a.wav", "in/b.wav"}) {
        fs::copy_file(dir_ / "talk.wav", dir_ / name);
    }
    ASSERT_TRUE(until([&] { return !events("waiting").empty(); })) << words_text();
    EXPECT_TRUE(events("finished").empty());
    fs::remove(disk / "filler");
    ASSERT_TRUE(is_finished(1)) << words_text();
    EXPECT_EQ(events("resumed").size(), 1u);
    EXPECT_EQ(events("finished")[0]["status"], "leveled");
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_EQ(events("started")[1]["input"], events("started")[0]["input"])
        << "while there was no room another file was begun";
    ASSERT_EQ(events("waiting").size(), 1u) << "for both files";
    EXPECT_EQ(events("waiting")[0]["input"], events("finished")[0]["input"]);
}

TEST_F(Disks, NothingIsWrittenToTheEmptyMountPointOfOneThatIsGone) {
    const std::string disk = dir_ / "disk";
    start("-d disk --metrics m.prom", with_disk("disk", 2000));
    inside("umount " + disk);
    ASSERT_TRUE(until([&] { return events("gone").size() == 1; })) << words_text();
    talk("in/a.wav", 1);
    ASSERT_TRUE(until([&] {
        return read_text(dir_ / "m.prom").find("quorvane_queue_length 1\n") != std::string::npos;
    })) << "it is seen and waits";
    inside("mount -t tmpfs -o size=2000k none " + disk);
    ASSERT_TRUE(is_finished(1)) << words_text();
    EXPECT_EQ(events("finished")[0]["status"], "leveled");
    EXPECT_EQ(events("watching").size(), 2u);
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_THAT(names_in("disk"), IsEmpty()) << "of the folder below the disk";
}

TEST_F(Disks, WhatWasInWorkWhenOneWentIsLeveledWhenItIsBack) {
    const std::string disk = dir_ / "disk";
    talk("in/a.wav", 900);
    start("-d disk", with_disk("disk", 60000));
    ASSERT_TRUE(until([&] { return events("started").size() == 1; }));
    inside("umount -l " + disk);
    ASSERT_TRUE(until([&] { return events("gone").size() == 1; })) << words_text();
    inside("mount -t tmpfs -o size=60000k none " + disk);
    ASSERT_TRUE(is_finished(1)) << words_text();
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_EQ(events("finished")[0]["status"], "leveled") << events("finished")[0];
    EXPECT_THAT(names_in("disk"), IsEmpty()) << "of the folder below the disk";
}

TEST_F(Disks, NothingIsTakenFromTheMountPointOfAWatchedOneThatIsGone) {
    start("-d out", with_disk("in", 2000));
    inside("umount " + (dir_ / "in"));
    ASSERT_TRUE(until([&] { return events("gone").size() == 1; })) << words_text();
    talk("in/below.wav", 1);
    inside("mount -t tmpfs -o size=2000k none " + (dir_ / "in"));
    ASSERT_TRUE(until([&] { return events("watching").size() == 2; })) << words_text();
    fs::copy_file(dir_ / "in/below.wav", seen("in") / "a.wav");
    ASSERT_TRUE(is_finished(1)) << words_text();
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_THAT(outputs_in("out"), testing::ElementsAre("a-leveled.wav"));
}

}  // namespace
