#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "cli/batch/batch.h"
#include "cli/worker/job.h"
#include "cli/worker/worker.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

namespace cli {
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

}  // namespace
}  // namespace cli

/** The workers are this program itself. */
int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], cli::kWorkerWord) == 0) {
        (void)!nice(10);  // they yield to the test that stops them in mid-file
        return cli::worker_main();
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
