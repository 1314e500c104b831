#include <signal.h>

#include <filesystem>
#include <fstream>

#include "tests/support/service_manager.h"
#include "tests/support/watch_run.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

TEST_F(WatchRun, RecordingsAreLeveledWhenTheyAreCompleteAndOnlyOnce) {
    talk("in/early.wav", 1);
    talk("talk.wav", 1);
    start("-d in/leveled --on-done /bin/true --metrics m.prom");
    ASSERT_TRUE(is_finished(1)) << "what was there before";
    fs::create_directories(dir_ / "in/sub/deep");
    fs::copy_file(dir_ / "talk.wav", dir_ / "in/sub/deep/copied.wav");
    fs::copy_file(dir_ / "talk.wav", dir_ / "in/.renamed.wav");
    fs::rename(dir_ / "in/.renamed.wav", dir_ / "in/renamed.wav");
    write_text(dir_ / "in/notes.txt", "no sound");
    ASSERT_TRUE(is_finished(3));

    const std::string sound = read_text(dir_ / "talk.wav");
    std::ofstream slow(dir_ / "in/slow.wav", std::ios::binary);
    slow.write(sound.data(), 1000).flush();
    fs::copy_file(dir_ / "talk.wav", dir_ / "in/marker.wav");
    ASSERT_TRUE(is_finished(4)) << "of another file, meanwhile";
    EXPECT_FALSE(file_exists(dir_ / "in/leveled/slow-leveled.wav"));
    slow.write(sound.data() + 1000, static_cast<std::streamsize>(sound.size()) - 1000).flush();
    slow.close();
    ASSERT_TRUE(is_finished(5));

    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_THAT(outputs_in("in/leveled"),
                ElementsAre("early-leveled.wav", "marker-leveled.wav", "renamed-leveled.wav",
                            "slow-leveled.wav", "sub"));
    EXPECT_EQ(fs::file_size(dir_ / "in/leveled/slow-leveled.wav"), sound.size());
    EXPECT_THAT(read_text(dir_ / "m.prom"), HasSubstr("{outcome=\"leveled\"} 5\n"));
    for (const auto& event : events("finished")) {
        EXPECT_EQ(event["status"], "leveled") << event;
    }

    start("-d in/leveled --metrics m.prom");
    ASSERT_TRUE(until([&] {
        return read_text(dir_ / "m.prom").find("{outcome=\"up-to-date\"} 5\n") != std::string::npos;
    })) << "the records say what is done";
    EXPECT_EQ(stop(SIGINT), 0);
    EXPECT_EQ(events("finished").size(), 5u);
}

TEST_F(WatchRun, OutputsBesideTheInputsAreNoInputs) {
    start("");
    talk("in/a.wav", 1);
    ASSERT_TRUE(is_finished(1));
    talk("in/b.wav", 1);
    ASSERT_TRUE(is_finished(2));
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_THAT(outputs_in("in"), ElementsAre("a-leveled.wav", "a.wav", "b-leveled.wav", "b.wav"));
}

TEST_F(WatchRun, AKilledWatchGoesOnWhereItWas) {
    constexpr int kFiles = 30;
    talk("talk.wav", 1);
    start("-d out -j 2");
    for (int i = 0; i < kFiles; ++i) {
        fs::copy_file(dir_ / "talk.wav", dir_ / ("in/" + std::to_string(i) + ".wav"));
        if (i % 10 == 9) {
            ASSERT_TRUE(is_finished(static_cast<std::size_t>(i) / 3));
            EXPECT_EQ(stop(SIGKILL), -SIGKILL);
            start("-d out -j 2");
        }
    }
    ASSERT_TRUE(
        until([&] { return fs::exists(dir_ / "out") && outputs_in("out").size() == kFiles; }));
    EXPECT_EQ(stop(SIGTERM), 0);
    std::map<std::string, int> times;
    for (const auto& event : events("finished")) {
        EXPECT_EQ(++times[event["input"]], 1) << "leveled twice: " << event["input"];
    }
    for (const std::string& name : outputs_in("out")) {  // hidden files would have another size
        EXPECT_EQ(fs::file_size(dir_ / ("out/" + name)), fs::file_size(dir_ / "talk.wav")) << name;
    }
}

TEST_F(WatchRun, AFileThatIsReplacedWhileItIsLeveledIsLeveledAgain) {
    talk("long.wav", 900);
    talk("other.wav", 1);
    start("-d out -j 1");
    fs::rename(dir_ / "long.wav", dir_ / "in/talk.wav");
    ASSERT_TRUE(until([&] { return events("started").size() == 1; }));
    fs::rename(dir_ / "other.wav", dir_ / "in/talk.wav");
    ASSERT_TRUE(is_finished(1));
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_EQ(events("finished").size(), 1u);
    EXPECT_EQ(events("finished")[0]["status"], "leveled") << events("finished")[0];
    EXPECT_EQ(fs::file_size(dir_ / "out/talk-leveled.wav"), fs::file_size(dir_ / "in/talk.wav"));
}

TEST_F(WatchRun, SigtermDropsTheFileInWorkWhichTheNextStartTakes) {
    talk("in/long.wav", 900);
    start("-d out");
    ASSERT_TRUE(until([&] { return events("started").size() == 1; }));
    EXPECT_EQ(stop(SIGTERM), 0);
    ASSERT_EQ(events("stopping").size(), 1u);
    EXPECT_EQ(events("stopping")[0]["dropped"], 1);
    EXPECT_THAT(words_text(), HasSubstr("the next start takes again: 1\n"));
    EXPECT_THAT(names_in("tmp"), IsEmpty());
    EXPECT_FALSE(file_exists(dir_ / "out/long-leveled.wav"));

    start("-d out");
    ASSERT_TRUE(until([&] { return file_exists(dir_ / "out/long-leveled.wav"); }));
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_THAT(names_in("out"), ElementsAre(".quorvane.jsonl", "long-leveled.wav"));
}

TEST_F(WatchRun, ItsServiceManagerHearsOfItsLife) {
    const ListeningManager manager(dir_ / "notify");
    start("-d out", "env WATCHDOG_USEC=100000 NOTIFY_SOCKET='" + (dir_ / "notify") + "' ");
    ASSERT_TRUE(until([&] { return manager.has("READY=1\nSTATUS=watching in"); }));
    ASSERT_TRUE(until([&] { return manager.has("WATCHDOG=1"); })) << "although nothing happens";
    talk("in/a.wav", 1);
    ASSERT_TRUE(until([&] { return manager.has("STATUS=watching in: 1 leveled, 0 failed, 0"); }));
    kill(pid_, SIGHUP);
    ASSERT_TRUE(until([&] { return manager.has("RELOADING=1\n"); }));
    ASSERT_TRUE(until([&] { return manager.has("READY=1\n"); }));
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_TRUE(manager.has("STOPPING=1"));
}

TEST_F(WatchRun, SighupOpensTheLogAgain) {
    start("-d out --log w.log");
    fs::rename(dir_ / "w.log", dir_ / "old.log");
    kill(pid_, SIGHUP);
    ASSERT_TRUE(until([&] { return file_exists(dir_ / "w.log"); }));
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_THAT(read_text(dir_ / "old.log"), HasSubstr("watching in"));
    EXPECT_THAT(read_text(dir_ / "w.log"), HasSubstr("stopped"));
}

TEST_F(WatchRun, AFailedFileAndAFailedProgramStopNothing) {
    start("-d out --on-done /bin/false");
    write_text(dir_ / "in/broken.wav", "RIFF, and nothing that follows");
    talk("in/good.wav", 1);
    ASSERT_TRUE(is_finished(2));
    ASSERT_TRUE(until([&] { return events("problem").size() == 2; }));
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_THAT(words_text(), HasSubstr("--on-done /bin/false failed for in/good.wav: it ended "
                                        "with status 1"));
    EXPECT_THAT(outputs_in("out"), ElementsAre("good-leveled.wav"));
}

TEST_F(WatchRun, WrongUsageIsRefused) {
    struct Row {
        const char* words;
        const char* message;
    };

    write_text(dir_ / "notes.txt", "mine");
    const Row rows[] = {
        {"--watch nowhere", "--watch nowhere is not a folder"},
        {"--watch in talk.wav", "--watch and PATHs exclude each other"},
        {"--watch in --report r.html", "--watch and --report exclude each other"},
        {"--watch in --json f.jsonl", "--json FILE"},
        {"--watch in --on-done notes.txt", "is not a program that can be run"},
        {"--watch in --metrics notes.txt", "does not look like such a file"},
        {"--on-done /bin/true in", "--on-done belongs to --watch"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.words);
        const ProgramResult result = run(row.words);
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, HasSubstr(row.message));
    }
    EXPECT_EQ(read_text(dir_ / "notes.txt"), "mine");
}

}  // namespace
