#include <gmock/gmock.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <sstream>
#include <thread>

#include "leveling/archive/output_claim.h"
#include "tests/support/batch_run.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

bool soon(const std::function<bool()>& condition) {
    for (int i = 0; i < 2400; ++i) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

class InterruptedBatch : public BatchRun {
  protected:
    static bool runs(pid_t pid) {
        const std::string status = "/proc/" + std::to_string(pid) + "/status";
        return run_program("grep '^State:.[^Z]' " + status).status == 0;
    }

    // Two long files, and the program busy with both of them. It yields to this test, so that a
    // busy machine makes its work longer.
    void start_long_batch() {
        for (const char* name : {"in/a.wav", "in/b.wav"}) {
            talk(name, 4800);
        }
        ended_ = std::async(std::launch::async, [this] {
            return run_program("cd " + dir_.path() +
                               " && echo $$ >pid && exec nice -n 10 " QUORVANE_AT_ONCE
                               "--plain -j2 -d out in");
        });
        ASSERT_TRUE(soon([&] {
            return run_program("find " + dir_ / "tmp" + " -name engine | wc -l").out == "2\n";
        }));
        parent_ = std::stoi(read_text(dir_ / "pid"));
        std::istringstream out(run_program("pgrep -P " + std::to_string(parent_)).out);
        workers_.assign(std::istream_iterator<pid_t>(out), {});
        ASSERT_EQ(2u, workers_.size());
    }

    pid_t parent_ = -1;
    std::vector<pid_t> workers_;
    std::future<ProgramResult> ended_;
};

TEST_F(InterruptedBatch, AKilledBatchGoesOnAndTwoAtOnceShareTheWork) {
    std::string list;
    for (int i = 10; i < 40; ++i) {
        talk("in/" + std::to_string(i) + ".wav", 1);
        list += "in/" + std::to_string(i) + ".wav" + '\n' + (i % 7 == 0 ? "\n" : "");
    }
    write_text(dir_ / "list", list + "in/gone.wav\n");
    const std::string words = " -j 2 -d out --log log --files-from ";
    // It cannot end before it is killed: another process has claimed one of its outputs.
    quorvane::OutputClaim claim;
    ASSERT_TRUE(claim.take(dir_ / "out/39-leveled.wav", "", quorvane::WhenTaken::Leave));
    auto killed = std::async(std::launch::async, [&] {
        return run_program("cd " + dir_.path() + " && echo $$ >pid && exec " QUORVANE + words +
                           "list");
    });
    ASSERT_TRUE(soon([&] { return outputs_in("out").size() > 4; }));
    kill(std::stoi(read_text(dir_ / "pid")), SIGKILL);
    EXPECT_EQ(-SIGKILL, killed.get().status);
    // Until its workers have ended. What the last one could not know of, the next run removes.
    soon([&] { return names_in("tmp").empty(); });
    std::vector<std::string> done = outputs_in("out");
    const auto is_part = [](const std::string& name) { return name.front() == '.'; };
    done.erase(std::remove_if(done.begin(), done.end(), is_part), done.end());
    ASSERT_LT(done.size(), 30u);
    claim.release();
    write_text(dir_ / "log", "");

    EXPECT_EQ(0, run_program("cd " + dir_.path() + " && tr '\\n' '\\0' <list | " QUORVANE + words +
                             "- --null --json two & cd " + dir_.path() + " && " QUORVANE + words +
                             "list --json one >/dev/null; wait")
                     .status);
    EXPECT_EQ(30u, outputs_in("out").size());
    const std::string again = run_program("grep -c ' leveled in/' " + dir_ / "log").out;
    EXPECT_EQ(30 - done.size(), std::stoul(again)) << "a file was done twice";
    for (const char* run : {"one", "two"}) {
        auto all = facts(read_text(dir_ / run));
        ASSERT_EQ(31u, all.size());
        EXPECT_EQ("failed", all["in/gone.wav"]["status"]);
        EXPECT_EQ("up-to-date", all["in/" + done.front().substr(0, 2) + ".wav"]["status"]);
    }
}

TEST_F(InterruptedBatch, AKilledWorkerCostsItsFileOnly) {
    ASSERT_NO_FATAL_FAILURE(start_long_batch());
    kill(workers_.at(0), SIGKILL);
    const ProgramResult result = ended_.get();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(outputs_in("out").size(), 1u);
    EXPECT_THAT(result.err, HasSubstr("was ended by signal 9"));
}

TEST_F(InterruptedBatch, AFileThatChangesWhileItIsReadGetsNoOutput) {
    ASSERT_NO_FATAL_FAILURE(start_long_batch());
    write_text(dir_ / "in/a.wav", read_text(dir_ / "in/a.wav") + "more");
    const ProgramResult result = ended_.get();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("failed in/a.wav: it was changed while it was read"));
    EXPECT_THAT(outputs_in("out"), ElementsAre("b-leveled.wav"));
}

TEST_F(InterruptedBatch, NothingOutlivesAKilledParent) {
    ASSERT_NO_FATAL_FAILURE(start_long_batch());
    kill(parent_, SIGKILL);
    EXPECT_EQ(ended_.get().status, -SIGKILL);
    for (pid_t worker : workers_) {
        EXPECT_TRUE(soon([&] { return !runs(worker); }));
    }
    EXPECT_TRUE(soon([&] { return names_in("tmp").empty(); }));
    // The parts, which are hidden and empty or private, go with the next run for these outputs.
    for (const char* name : {"in/a.wav", "in/b.wav"}) {
        talk(name, 2);
    }
    EXPECT_EQ(0, run("-d out in").status);
    EXPECT_THAT(outputs_in("out"), ElementsAre("a-leveled.wav", "b-leveled.wav"));
}

TEST_F(InterruptedBatch, AnInterruptStopsAllAndCleansUp) {
    ASSERT_NO_FATAL_FAILURE(start_long_batch());
    kill(parent_, SIGINT);
    const ProgramResult result = ended_.get();
    EXPECT_EQ(result.status, 130);
    EXPECT_THAT(result.out + result.err, HasSubstr("2 not finished"));
    EXPECT_THAT(result.out, HasSubstr("not finished in/b.wav\n"));
    EXPECT_THAT(result.out, HasSubstr("the same command goes on"));
    EXPECT_FALSE(file_exists(dir_ / "out"));
}

}  // namespace
