#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "leveling/batch/batch.h"
#include "leveling/worker/job.h"
#include "leveling/worker/worker.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

namespace quorvane {
namespace {

/** What was heard, and a way to act at the first progress of a file. */
class Heard : public BatchObserver {
  public:
    void started(std::size_t index) override { started_.push_back(index); }

    void progress(std::size_t index, double fraction) override {
        EXPECT_GE(fraction, fractions_[index]);
        fractions_[index] = fraction;
        if (on_progress && index == act_on && fraction > 0.1) {
            std::exchange(on_progress, nullptr)();
        }
    }

    void finished(std::size_t index, const FileFacts& facts) override {
        EXPECT_TRUE(facts_.emplace(index, facts).second) << "told once";
    }

    Outcome outcome(std::size_t index) const { return facts_.at(index).outcome; }

    std::function<void()> on_progress;
    std::size_t act_on = 0;
    std::vector<std::size_t> started_;
    std::map<std::size_t, double> fractions_;
    std::map<std::size_t, FileFacts> facts_;
};

class BatchClass : public testing::Test {
  protected:
    std::string talk(const std::string& name, double seconds) {
        write_sound(dir_ / name, signals::speech(seconds, 16000), kWav16);
        return dir_ / name;
    }

    TempDir dir_;
    Heard heard_;
};

TEST_F(BatchClass, FilesAreAddedAndCancelledFromAnotherThreadWhileItRuns) {
    Batch batch(1, {}, heard_);
    heard_.act_on = 1;
    heard_.on_progress = [&] { batch.cancel(1); };
    auto ended = std::async(std::launch::async, [&] { batch.run(); });
    const std::size_t first = batch.add(talk("a.wav", 1), dir_ / "out/a.wav");
    const std::size_t running = batch.add(talk("b.wav", 1200), dir_ / "out/b.wav");
    const std::size_t waiting = batch.add(dir_ / "a.wav", dir_ / "out/c.wav");
    const std::size_t last = batch.add(dir_ / "a.wav", "");
    batch.cancel(waiting);
    batch.cancel(99);
    batch.close();
    ended.get();
    ASSERT_EQ(4u, heard_.facts_.size());
    EXPECT_EQ(Outcome::Leveled, heard_.outcome(first)) << heard_.facts_[first].cause;
    EXPECT_EQ(Outcome::Interrupted, heard_.outcome(running));
    EXPECT_EQ(Outcome::Interrupted, heard_.outcome(waiting));
    EXPECT_EQ(Outcome::Analyzed, heard_.outcome(last));
    EXPECT_EQ(0u, std::count(heard_.started_.begin(), heard_.started_.end(), waiting));
    EXPECT_EQ(dir_ / "out/a.wav", heard_.facts_[first].output);
    EXPECT_FALSE(file_exists(dir_ / "out/c.wav"));
}

TEST_F(BatchClass, StopEndsWhatRunsAndWhatWaits) {
    for (const Batch::Stop how : {Batch::Stop::CleanUp, Batch::Stop::Now}) {
        heard_ = {};
        Batch batch(1, {}, heard_);
        batch.add(talk("b.wav", 1200), dir_ / "out/b.wav");
        batch.add(dir_ / "b.wav", dir_ / "out/c.wav");
        heard_.on_progress = [&] { batch.stop(how); };
        batch.run();
        EXPECT_EQ(Outcome::Interrupted, heard_.outcome(0));
        EXPECT_EQ(Outcome::Interrupted, heard_.outcome(1));
        EXPECT_FALSE(file_exists(dir_ / "out/b.wav"));
    }
}

/** A worker that breaks the rules, by the name of how it does. */
int bad_worker(const std::string& how) {
    const auto report = [](const char* status, std::int64_t bytes) {
        FileFacts facts;
        facts.outcome = Outcome::Leveled;
        auto event = to_json(WorkResult{facts, "", "", bytes});
        event["facts"]["status"] = status;
        const std::string line = event.dump() + "\n";
        (void)!write(kEventDescriptor, line.data(), line.size());
    };
    if (how == "line") {
        const std::string block(1 << 20, 'x');
        for (int i = 0; i < 300 && write(kEventDescriptor, block.data(), block.size()) > 0; ++i) {
        }
        report("leveled", 0);
    } else if (how == "planned") {
        report("planned", 0);
    } else if (how == "nothing") {
        report("leveled", 0);
    } else if (how == "size") {
        report("leveled", 1000);
    } else if (how == "status") {
        report("copied", 0);
        return 3;
    } else if (how == "words") {
        (void)!write(kEventDescriptor, "leveled\n[1]\n{\"facts\": 1}\n", 26);
    } else if (how == "child" && fork() == 0) {
        while (access(getenv("GO_ON"), F_OK) == 0) {  // holds both pipes
            usleep(10000);
        }
    }
    return 0;
}

// Nothing of what a worker says is taken on trust, and none of it keeps the batch.
TEST_F(BatchClass, AWorkerThatBreaksTheRulesIsAFailureOfItsFile) {
    const std::string go_on = dir_ / "go-on";
    write_text(go_on, "");
    setenv("GO_ON", go_on.c_str(), 1);
    talk("a.wav", 1);
    const std::pair<const char*, const char*> rows[] = {
        {"line", "sent more than 16 MB without a line end"},
        {"planned", "answered \"planned\", which does not fit its job"},
        {"nothing", "reported an output of 0 bytes, but 0 bytes are there"},
        {"size", "reported an output of 1000 bytes, but 0 bytes are there"},
        {"status", "reported \"copied\", but ended with status 3"},
        {"words", "ended with status 0 and no result"},
        {"child", "ended with status 0 and no result"},
    };
    for (const auto& [how, cause] : rows) {
        SCOPED_TRACE(how);
        setenv("BAD_WORKER", how, 1);
        heard_ = {};
        Batch batch(1, {}, heard_);
        batch.add(dir_ / "a.wav", dir_ / "out/a.wav");
        batch.close();
        batch.run();
        EXPECT_EQ(Outcome::Failed, heard_.outcome(0));
        EXPECT_THAT(heard_.facts_[0].cause, testing::HasSubstr(cause));
        EXPECT_FALSE(file_exists(dir_ / "out")) << "left behind";
    }
    unsetenv("BAD_WORKER");
    unlink(go_on.c_str());
}

}  // namespace
}  // namespace quorvane

/** The workers are this program itself. */
int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], quorvane::kWorkerWord) == 0) {
        if (const char* how = getenv("BAD_WORKER")) {
            return quorvane::bad_worker(how);
        }
        (void)!nice(10);  // they yield to the test that stops them in mid-file
        return quorvane::worker_main();
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
