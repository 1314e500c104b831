#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "leveling/watch/arrivals.h"
#include "leveling/watch/done_program.h"
#include "leveling/watch/folder_watch.h"
#include "leveling/watch/metrics.h"
#include "leveling/watch/mounts.h"
#include "leveling/watch/service_manager.h"
#include "leveling/watch/writers.h"
#include "tests/support/fixtures.h"
#include "tests/support/service_manager.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

/** Files that exist as data alone, at times that the test names. */
class ArrivalsTest : public testing::Test {
  protected:
    static Arrivals::Time at(double seconds) {
        return Arrivals::Time(std::chrono::duration_cast<Arrivals::Clock::duration>(
            std::chrono::duration<double>(seconds)));
    }

    std::vector<std::string> due(double seconds) { return arrivals_.take_due(at(seconds), 100); }

    std::map<std::string, FileState> states_;  // a time of 1970 is not young
    std::map<std::string, Writer> writers_;
    Arrivals arrivals_{2,
                       {[this](const std::string& path) { return states_[path]; },
                        [this](const std::string& path) { return writers_[path]; }}};
};

TEST_F(ArrivalsTest, AClosedFileIsTakenAtOnceAndOnlyOnce) {
    states_["a"] = {10, 1};
    arrivals_.complete("a", at(0));
    EXPECT_THAT(due(0.1), IsEmpty()) << "it may be opened again to write tags";
    EXPECT_THAT(due(0.2), ElementsAre("a"));
    arrivals_.complete("a", at(1));
    arrivals_.found("a", at(1));
    EXPECT_THAT(due(9), IsEmpty()) << "in the same state";
    states_["a"] = {20, 2};
    arrivals_.finished("a", at(10));
    EXPECT_THAT(due(12), ElementsAre("a")) << "it changed while it was worked on";
}

TEST_F(ArrivalsTest, AFileThatIsOpenForWritingWaitsHoweverLongItStalls) {
    states_["a"] = {10, 1};
    writers_["a"] = Writer::Some;
    arrivals_.appeared("a", at(0));
    for (double time = 2; time < 100; time += 2) {
        EXPECT_THAT(due(time), IsEmpty()) << time;
    }
    writers_["a"] = Writer::None;
    EXPECT_THAT(due(102), ElementsAre("a"));
}

TEST_F(ArrivalsTest, WithoutAWordOfTheKernelAFileIsTakenWhenItHasSettled) {
    states_["a"] = {10, 1};
    writers_["a"] = Writer::Unknown;
    arrivals_.found("a", at(0));
    EXPECT_THAT(due(1.9), IsEmpty());
    states_["a"] = {20, 1};
    EXPECT_THAT(due(2), IsEmpty()) << "it grew";
    EXPECT_THAT(due(3.9), IsEmpty());
    EXPECT_THAT(due(4), ElementsAre("a"));
}

TEST_F(ArrivalsTest, AnUnclosedFileOfAnUnknownWriterWaitsLonger) {
    states_["a"] = {10, 1};
    writers_["a"] = Writer::Unknown;
    arrivals_.appeared("a", at(0));
    EXPECT_THAT(due(2), IsEmpty());
    EXPECT_THAT(due(31), IsEmpty());
    EXPECT_THAT(due(33), ElementsAre("a"));
}

TEST_F(ArrivalsTest, AFileThatGoesIsForgotten) {
    states_["a"] = {10, 1};
    arrivals_.complete("a", at(0));
    arrivals_.gone("a");
    EXPECT_FALSE(arrivals_.next());
    EXPECT_EQ(arrivals_.size(), 0u);
}

#ifdef __linux__

TEST(Writers, AnOpenFileHasAWriterUntilItIsClosed) {
    const TempDir dir;
    const std::string path = dir / "a.wav";
    const int file = open(path.c_str(), O_WRONLY | O_CREAT, 0644);
    EXPECT_EQ(writer_of(path), Writer::Some);
    close(file);
    EXPECT_EQ(writer_of(path), Writer::None);
}

/** Reports of a folder's watch; waits by poll() as its owner does. */
class FolderWatchTest : public testing::Test {
  protected:
    using Change = FolderWatch::Change;

    /** Reads until the path was reported so; false after a time that no machine needs. */
    bool comes(const std::string& path, Change change) {
        const auto latest = std::chrono::steady_clock::now() + 60s;
        while (std::chrono::steady_clock::now() < latest) {
            for (const auto& report : reports_) {
                if (report == std::pair(dir_ / path, change)) {
                    return true;
                }
            }
            auto polled = watch_.descriptors();
            poll(polled.data(), polled.size(), 100);
            watch_.read(polled.data());
        }
        return false;
    }

    TempDir dir_;
    std::vector<std::pair<std::string, Change>> reports_;
    FolderWatch watch_{dir_.path(), dir_ / "out", [this](const std::string& path, Change change) {
                           reports_.emplace_back(path, change);
                       }};
};

TEST_F(FolderWatchTest, ReportsFilesOfOldAndNewFoldersWhereverTheyMove) {
    fs::create_directories(dir_ / "old/deep");
    fs::create_directories(dir_ / "out");
    fs::create_directory_symlink("..", dir_ / "old/circle");
    write_text(dir_ / "old/deep/there.wav", "x");
    watch_.look();
    EXPECT_EQ(watch_.source(), FolderWatch::Source::Kernel);
    EXPECT_EQ(watch_.folders(), 3u) << "the folder, old, deep; the circle ends";
    EXPECT_TRUE(comes("old/deep/there.wav", Change::Found));

    write_text(dir_ / "old/deep/a.wav", "x");
    EXPECT_TRUE(comes("old/deep/a.wav", Change::Closed));
    fs::create_directories(dir_ / "new/below");
    write_text(dir_ / "new/below/early.wav", "x");
    EXPECT_TRUE(comes("new/below/early.wav", Change::Found) ||
                comes("new/below/early.wav", Change::Closed));
    fs::rename(dir_ / "new", dir_ / "moved");
    EXPECT_TRUE(comes("moved/below/early.wav", Change::Found));
    write_text(dir_ / "moved/below/b.wav", "x");
    EXPECT_TRUE(comes("moved/below/b.wav", Change::Closed)) << "under its new name";
    fs::remove(dir_ / "moved/below/b.wav");
    EXPECT_TRUE(comes("moved/below/b.wav", Change::Gone));

    write_text(dir_ / "out/output.wav", "x");
    write_text(dir_ / ".hidden.wav", "x");
    fs::rename(dir_ / ".hidden.wav", dir_ / "shown.wav");
    EXPECT_TRUE(comes("shown.wav", Change::Closed));
    for (const auto& [path, change] : reports_) {
        EXPECT_THAT(path, testing::Not(HasSubstr("out/")));
        EXPECT_THAT(path, testing::Not(HasSubstr(".hidden")));
    }
}

TEST_F(FolderWatchTest, WaitsForAFolderThatWentAndCameBack) {
    TempDir elsewhere;
    watch_.look();
    fs::rename(dir_.path(), elsewhere / "away");
    const auto latest = std::chrono::steady_clock::now() + 60s;
    while (watch_.source() != FolderWatch::Source::None &&
           std::chrono::steady_clock::now() < latest) {
        auto polled = watch_.descriptors();
        poll(polled.data(), polled.size(), 100);
        watch_.read(polled.data());
    }
    EXPECT_TRUE(watch_.next_look()) << "it is looked for";
    fs::rename(elsewhere / "away", dir_.path());
    write_text(dir_ / "a.wav", "x");
    EXPECT_TRUE(comes("a.wav", Change::Found));
    EXPECT_EQ(watch_.source(), FolderWatch::Source::Kernel);
}

TEST(NetworkFileSystem, IsKnownByItsTypeAndSearched) {
    struct Row {
        std::uint32_t magic;
        const char* name;
    };

    const Row rows[] = {
        {0x6969, "NFS"},
        {0x517B, "SMB"},
        {0xFE534D42, "SMB"},
        {0xFF534D42, "SMB"},
        {0x65735546, "FUSE"},
        {0xEF53 /* ext4 */, ""},
        {0x01021994 /* tmpfs */, ""},
    };
    const TempDir dir;
    write_text(dir / "a.wav", "x");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.magic);
        EXPECT_EQ(network_of_type(row.magic), row.name);
        std::vector<std::string> found;
        FolderWatch watch(
            dir.path(), "",
            [&](const std::string& path, FolderWatch::Change) { found.push_back(path); },
            [&](const std::string&) { return network_of_type(row.magic); });
        watch.look();
        EXPECT_THAT(found, ElementsAre(dir / "a.wav"));
        if (*row.name) {
            EXPECT_EQ(watch.source(), FolderWatch::Source::Search);
            EXPECT_TRUE(watch.next_look());
            EXPECT_THAT(watch.why_search(), HasSubstr(std::string("is on ") + row.name));
        } else {
            EXPECT_EQ(watch.source(), FolderWatch::Source::Kernel) << watch.why_search();
        }
    }
}

#endif

/** A program that writes down what it was started with, and does what the test says. */
std::string script(const TempDir& dir, const std::string& text) {
    const std::string path = dir / "program";
    write_text(path, "#!/bin/sh\n" + text + "\n");
    fs::permissions(path, fs::perms::owner_all);
    return path;
}

TEST(DoneProgram, GetsTheResultsInItsEnvironmentAndNothingElse) {
    const TempDir dir;
    FileFacts facts;
    facts.input = "/in/it's $(odd).wav";
    facts.output = "/out/a.wav";
    facts.outcome = Outcome::Copied;
    facts.cause = "nothing to level";
    facts.after.emplace().integrated_lufs = -18.04;
    std::vector<std::string> problems;
    setenv("QUORVANE_LUFS_BEFORE", "of an outer run", 1);
    {
        DoneProgram program(script(dir, "env | grep ^QUORVANE_ > '" + (dir / "env") +
                                            "'; echo $# >> '" + (dir / "env") + "'"),
                            [&](const std::string& text) { problems.push_back(text); });
        program.add(facts);
    }
    unsetenv("QUORVANE_LUFS_BEFORE");
    EXPECT_THAT(problems, IsEmpty());
    const std::string seen = read_text(dir / "env");
    EXPECT_THAT(seen, HasSubstr("QUORVANE_INPUT=/in/it's $(odd).wav\n"));
    EXPECT_THAT(seen, HasSubstr("QUORVANE_OUTPUT=/out/a.wav\n"));
    EXPECT_THAT(seen, HasSubstr("QUORVANE_OUTCOME=copied\n"));
    EXPECT_THAT(seen, HasSubstr("QUORVANE_CAUSE=nothing to level\n"));
    EXPECT_THAT(seen, testing::Not(HasSubstr("of an outer run")));
    EXPECT_THAT(seen, HasSubstr("QUORVANE_LUFS_AFTER=-18.0\n"));
    EXPECT_THAT(seen, testing::EndsWith("\n0\n")) << "no arguments";
}

TEST(DoneProgram, ItsFailureIsReportedAndItsTimeIsLimited) {
    struct Row {
        const char* text;
        const char* problem;
    };

    const Row rows[] = {
        {"exit 3", "it ended with status 3"},
        {"kill -TERM $$", "signal 15"},
        {"sleep 600", "it was ended because it took longer than 0.2 s"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const TempDir dir;
        std::string problem;
        int held[2];  // by the program and its children
        ASSERT_EQ(pipe(held), 0);
        {
            DoneProgram program(
                script(dir, row.text), [&](const std::string& text) { problem = text; }, 200ms);
            program.add({});
        }
        EXPECT_THAT(problem, HasSubstr(row.problem));
        close(held[1]);
        pollfd end{held[0], POLLIN, 0};
        EXPECT_EQ(poll(&end, 1, 60'000), 1) << "what it started has not ended";
        close(held[0]);
    }
    std::string problem;
    {
        DoneProgram("/nowhere", [&](const std::string& text) { problem = text; }).add({});
    }
    EXPECT_THAT(problem, HasSubstr("cannot be started: No such file or directory"));
}

/** The environment of a process that a service manager started, until its end. */
class Started {
  public:
    Started(const std::string& socket, const std::string& process) {
        setenv("NOTIFY_SOCKET", socket.c_str(), 1);
        setenv("WATCHDOG_USEC", "3000000", 1);
        setenv("WATCHDOG_PID", process.c_str(), 1);
    }

    ~Started() {
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
            unsetenv(name);
        }
    }
};

TEST(ServiceManager, IsToldByTheProtocolOfSdNotify) {
    const TempDir dir;
    const ListeningManager manager(dir / "notify");
    const Started started(dir / "notify", std::to_string(getpid()));
    const ServiceManager service;
    EXPECT_EQ(service.alive_every(), 1500ms) << "twice as often as is asked for";
    EXPECT_EQ(getenv("NOTIFY_SOCKET"), nullptr) << "workers are not to use it";
    service.ready("watching a\nREADY=0");
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=watching a READY=0");
    service.alive();
    EXPECT_EQ(manager.next(), "WATCHDOG=1");
    service.reloading();
    EXPECT_THAT(manager.next(), testing::StartsWith("RELOADING=1\nMONOTONIC_USEC="));
    service.stopping();
    EXPECT_EQ(manager.next(), "STOPPING=1");
}

TEST(ServiceManager, AWatchdogOfAnotherProcessIsNotFed) {
    const TempDir dir;
    const Started started(dir / "notify", "1");
    EXPECT_FALSE(ServiceManager().alive_every());
    EXPECT_FALSE(ServiceManager().alive_every()) << "without a manager";
}

TEST(WatchMetrics, AreInThePrometheusFormat) {
    WatchMetrics metrics;
    FileFacts facts;
    facts.outcome = Outcome::Leveled;
    facts.sample_rate_hz = 8000;
    facts.frames = 12000;
    facts.elapsed_s = 0.25;
    metrics.count(facts, 1000);
    metrics.queue = 7;
    facts.outcome = Outcome::Failed;
    metrics.count(facts, 2000);
    facts.outcome = Outcome::UpToDate;  // it took a look at the record, not work
    metrics.count(facts, 3000);
    const std::string text = to_text(metrics);
    for (const char* line :
         {"quorvane_files_total{outcome=\"leveled\"} 1",
          "quorvane_files_total{outcome=\"failed\"} 1", "quorvane_audio_seconds_total 1.5",
          "quorvane_work_seconds_total 0.5", "quorvane_queue_length 7",
          "quorvane_last_success_timestamp_seconds 1000", "# TYPE quorvane_files_total counter"}) {
        EXPECT_THAT(text, HasSubstr(std::string(line) + "\n"));
    }
}

}  // namespace
}  // namespace quorvane
