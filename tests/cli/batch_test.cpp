#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

bool soon(const std::function<bool()>& condition) {
    for (int i = 0; i < 600; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

class Batch : public testing::Test {
  protected:
    Batch() {
        fs::create_directory(dir_ / "tmp");
        setenv("TMPDIR", (dir_ / "tmp").c_str(), 1);
    }

    ~Batch() override {
        EXPECT_THAT(names_in("tmp"), IsEmpty()) << "temporary files were left";
        unsetenv("TMPDIR");
    }

    void talk(const std::string& name, double seconds = 4, int format = kWav16) {
        fs::create_directories(fs::path(dir_ / name).parent_path());
        write_sound(dir_ / name, signals::speech(seconds, 16000), format);
    }

    ProgramResult run(const std::string& words) {
        return run_program("cd '" + dir_.path() + "' && " QUORVANE " " + words);
    }

    std::vector<std::string> names_in(const std::string& folder) const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir_ / folder))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    // Facts of a run, by input.
    static std::map<std::string, Json> facts(const std::string& lines) {
        std::map<std::string, Json> result;
        std::istringstream in(lines);
        for (std::string line; std::getline(in, line);) {
            const Json json = Json::parse(line);
            result[json["input"]] = json;
        }
        return result;
    }

    // Starts the program in the background; its output goes to the file "log".
    pid_t start(std::vector<std::string> words) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, (dir_ / "log").c_str(), O_CREAT | O_WRONLY,
                                         0600);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        words.insert(words.begin(), QUORVANE);
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(&word[0]);
        argv.push_back(nullptr);
        pid_t pid = -1;
        EXPECT_EQ(posix_spawn(&pid, QUORVANE, &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        return pid;
    }

    static std::vector<pid_t> children_of(pid_t parent) {
        std::vector<pid_t> children;
        std::istringstream out(run_program("pgrep -P " + std::to_string(parent)).out);
        for (pid_t pid = 0; out >> pid;) children.push_back(pid);
        return children;
    }

    static bool runs(pid_t pid) {
        std::ifstream status("/proc/" + std::to_string(pid) + "/stat");
        std::string id, name, state;
        status >> id >> name >> state;
        return status && state != "Z";
    }

    // Two long files, and the program busy with both of them.
    pid_t start_long_batch() {
        fs::create_directory(dir_ / "in");
        for (const char* name : {"in/a.wav", "in/b.wav"})
            write_sound(dir_ / name, signals::speech(150, 44100), kWav16);
        const pid_t pid = start({"-j2", "-d", dir_ / "out", dir_ / "in"});
        EXPECT_TRUE(soon([&] {
            return run_program("find " + dir_ / "tmp" + " -name '_02.wav'").out.find("_02") !=
                   std::string::npos;
        }));
        return pid;
    }

    static int status_of(pid_t pid) {
        int status = 0;
        waitpid(pid, &status, 0);
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }

    TempDir dir_;
};

TEST_F(Batch, AFolderIsLeveledAndOneBadFileCostsItselfOnly) {
    talk("season/one.wav");
    talk("season/sub/two.flac", 4, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    write_text(dir_ / "season/bad.wav", "nothing to hear");
    write_sound(dir_ / "season/three-channels.wav", signals::sine(0.2, 300, 2, 16000, 3), kWav16);
    const std::string before = read_text(dir_ / "season/one.wav");
    const ProgramResult result = run("-j2 -d out --json facts.json season nowhere.wav");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(names_in("out"), ElementsAre("one-leveled.wav", "sub"));
    EXPECT_EQ(read_text(dir_ / "season/one.wav"), before);
    EXPECT_EQ(sound_info(dir_ / "out/sub/two-leveled.flac").frames, 64000);
    EXPECT_THAT(result.out, HasSubstr("2 leveled, 3 failed in"));
    // Each failure is told when it happens and once more at the end, after the counts.
    EXPECT_THAT(result.err, HasSubstr("failed season/bad.wav: cannot be read as audio"));
    EXPECT_THAT(result.err, HasSubstr("failed nowhere.wav: does not exist"));
    const size_t first = result.err.find("failed season/three-channels.wav: ");
    EXPECT_NE(result.err.find("failed season/three-channels.wav: ", first + 1), std::string::npos);
    EXPECT_THAT(result.err, HasSubstr("cannot process more than 2 channels"));

    const auto all = facts(read_text(dir_ / "facts.json"));
    ASSERT_EQ(all.size(), 5u);
    const Json& one = all.at("season/one.wav");
    EXPECT_EQ(one["status"], "leveled");
    EXPECT_EQ(one["frames"], 64000);
    EXPECT_NEAR(one["after"]["rms_dbfs"], -18, 1.5);
    EXPECT_GE(one["leveling"]["passages"].size(), 1u);
    EXPECT_LE(one["leveling"]["least_gain_db"], one["leveling"]["greatest_gain_db"]);
    EXPECT_EQ(all.at("nowhere.wav")["status"], "failed");
}

TEST_F(Batch, OutputsThatExistAreKeptWithoutForce) {
    talk("a.wav");
    write_text(dir_ / "a-leveled.wav", "mine");
    ProgramResult result = run("a.wav");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("skipped a.wav: a-leveled.wav exists"));
    EXPECT_EQ(read_text(dir_ / "a-leveled.wav"), "mine");

    struct stat old_time {};

    const timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
    utimensat(AT_FDCWD, (dir_ / "a.wav").c_str(), times, 0);
    result = run("-f --keep-mtime -q a.wav");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(sound_info(dir_ / "a-leveled.wav").frames, 64000);
    stat((dir_ / "a-leveled.wav").c_str(), &old_time);
    EXPECT_EQ(old_time.st_mtime, 1000000000);
}

TEST_F(Batch, DryRunsAndAnalysesWriteNothing) {
    talk("s/a.wav");
    ProgramResult result = run("-n s");
    EXPECT_EQ(result.out, "would level s/a.wav > s/a-leveled.wav\n");
    result = run("--analyze --json - s");
    EXPECT_EQ(result.status, 0);
    const auto all = facts(result.out);  // nothing but JSON
    EXPECT_EQ(all.at("s/a.wav")["status"], "analyzed");
    EXPECT_TRUE(all.at("s/a.wav")["output"].is_null());
    EXPECT_THAT(result.err, HasSubstr("LUFS"));
    EXPECT_THAT(names_in("s"), ElementsAre("a.wav"));
}

TEST_F(Batch, WrongUsageIsStatus2BeforeAnyWork) {
    talk("a.wav");
    talk("b/a.wav");
    EXPECT_EQ(run("").status, 2);
    EXPECT_EQ(run("--nonsense a.wav").status, 2);
    const ProgramResult result = run("-d out a.wav b/a.wav");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err,
                HasSubstr("a.wav and b/a.wav would both be written to out/a-leveled.wav"));
    EXPECT_FALSE(file_exists(dir_ / "out"));
    EXPECT_EQ(run("--help").status, 0);
    EXPECT_EQ(run("--version").out, "quorvane 3.0.0\n");
}

TEST_F(Batch, CopiesAreSaidWithTheirReason) {
    fs::create_directory(dir_ / "s");
    write_sound(dir_ / "s/short.wav", signals::sine(0.5, 440, 0.04, 16000), kWav16);
    write_sound(dir_ / "s/still.wav", signals::silence(16000, 16000), kWav16);
    write_sound(dir_ / "s/flat.wav", signals::from([](long long) { return 0.25; }, 16000, 16000),
                kWav16);
    write_sound(dir_ / "s/faint.wav", signals::sine(0.0005, 440, 2, 16000), kWav16);
    const ProgramResult result = run("s");
    EXPECT_EQ(result.status, 0) << result.err;
    for (const char* line :
         {"copied unchanged s/short.wav > s/short-leveled.wav: shorter than 0.05 s",
          "copied unchanged s/still.wav > s/still-leveled.wav: silent",
          "copied unchanged s/flat.wav > s/flat-leveled.wav: every sample is the same",
          "4 copied unchanged"})
        EXPECT_THAT(result.out, HasSubstr(line));
    for (const char* name : {"short", "still", "flat", "faint"})
        EXPECT_EQ(read_text(dir_ / ("s/" + std::string(name) + ".wav")),
                  read_text(dir_ / ("s/" + std::string(name) + "-leveled.wav")));
}

TEST_F(Batch, WithInputFileItIsTheEnginesCommandLine) {
    talk("a.wav");
    EXPECT_EQ(run("--input-file a.wav --output-file direct.wav").status, 0);
    EXPECT_EQ(run("--no-measure a.wav").status, 0);
    EXPECT_EQ(read_text(dir_ / "direct.wav"), read_text(dir_ / "a-leveled.wav"))
        << "the same bytes both ways";
    EXPECT_EQ(run("--input-file=a.wav --help").status, 1);
}

TEST_F(Batch, TuningReachesTheEngine) {
    talk("a.wav");
    EXPECT_EQ(run("-b 24 a.wav").status, 0);
    EXPECT_EQ(sound_info(dir_ / "a-leveled.wav").format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    const ProgramResult result = run("-f -b 17 a.wav");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("17"));
    EXPECT_EQ(sound_info(dir_ / "a-leveled.wav").format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
}

TEST_F(Batch, ATruncatedResultIsAFailureAndNotWritten) {
    talk("a.wav");
    const ProgramResult result = run("--bin-size 100 a.wav");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("s shorter than the input"));
    EXPECT_FALSE(file_exists(dir_ / "a-leveled.wav"));
}

TEST_F(Batch, NamesMayHoldAnyBytes) {
    const std::string names[] = {"-dash.wav", "sp ace 'q\"uote.wav", "lat\xe9in.wav",
                                 "new\nline.wav"};
    for (const std::string& name : names) talk("s/" + name);
    EXPECT_EQ(run("--json facts.json --report report s").status, 0);
    for (const std::string& name : names)
        EXPECT_TRUE(file_exists(dir_ / ("s/" + name.substr(0, name.size() - 4) + "-leveled.wav")));
    EXPECT_EQ(facts(read_text(dir_ / "facts.json")).size(), 4u);
    EXPECT_EQ(run_program("cd '" + dir_ / "s" + "' && " QUORVANE " -f -- -dash.wav").status, 0);
}

TEST_F(Batch, AKilledWorkerCostsItsFileOnly) {
    const pid_t parent = start_long_batch();
    const std::vector<pid_t> workers = children_of(parent);
    ASSERT_EQ(workers.size(), 2u);
    kill(workers[0], SIGKILL);
    EXPECT_EQ(status_of(parent), 1);
    EXPECT_EQ(names_in("out").size(), 1u);
    EXPECT_THAT(read_text(dir_ / "log"), HasSubstr("was ended by signal 9"));
}

TEST_F(Batch, NothingOutlivesAKilledParent) {
    const pid_t parent = start_long_batch();
    const std::vector<pid_t> workers = children_of(parent);
    ASSERT_EQ(workers.size(), 2u);
    kill(parent, SIGKILL);
    EXPECT_EQ(status_of(parent), -SIGKILL);
    for (pid_t worker : workers) EXPECT_TRUE(soon([&] { return !runs(worker); }));
    EXPECT_FALSE(file_exists(dir_ / "out"));
    EXPECT_TRUE(soon([&] { return names_in("tmp").empty(); }));
}

TEST_F(Batch, AnInterruptStopsAllAndCleansUp) {
    const pid_t parent = start_long_batch();
    kill(parent, SIGINT);
    EXPECT_EQ(status_of(parent), 130);
    EXPECT_THAT(read_text(dir_ / "log"), HasSubstr("2 not finished"));
    EXPECT_FALSE(file_exists(dir_ / "out"));
}

TEST_F(Batch, ALimitOnFileSizeFailsWithoutLeavings) {
    talk("s/a.wav", 60);
    talk("s/b.wav", 2);
    // 1 MB, in blocks of 512 or 1024 bytes: a.wav has 1.9 MB.
    const ProgramResult result =
        run_program("cd '" + dir_.path() + "' && ulimit -f 1024 && " QUORVANE " -d out s");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(names_in("out"), ElementsAre("b-leveled.wav"));
}

TEST_F(Batch, WhatAKilledRunLeftIsSweptUp) {
    fs::create_directory(dir_ / "tmp/quorvane-abcdef");
    write_text(dir_ / "tmp/quorvane-abcdef/lock", "");
    write_text(dir_ / "tmp/quorvane-abcdef/_01.wav", "x");
    talk("a.wav");
    EXPECT_EQ(run("-q a.wav").status, 0);
}

}  // namespace
