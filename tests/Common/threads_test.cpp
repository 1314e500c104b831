#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Common/level.h"
#include "Common/reporting/run_state.h"
#include "Common/segment/segment_util.h"
#include "tests/support/engine_switches.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

// The build with the thread sanitizer takes more of both.
#ifndef QUORVANE_THREADS
#define QUORVANE_THREADS 4
#define QUORVANE_RECORDINGS 5
#endif

namespace {

using testing::HasSubstr;

/** A file to level and what is unlike about the run. */
struct Task {
    std::string input;
    std::vector<std::string> options;
    std::vector<LevelSwitch> switches;
    float cancel_at;
};

struct Result {
    int status = -1;
    LevelOutcomeKind kind = kLevelNotRun;
    std::string reason;
    std::string output;
    std::string words;
    std::vector<float> fractions;
    std::vector<double> gains;
    std::vector<std::string> left;

    bool operator==(const Result& other) const {
        return status == other.status && kind == other.kind && reason == other.reason &&
               output == other.output && words == other.words && fractions == other.fractions &&
               gains == other.gains && left == other.left;
    }
};

using RunObject = std::unique_ptr<LevelRun, void (*)(LevelRun*)>;

RunObject new_run(const TempDir& temporary) {
    RunObject run(levelRunNew(), levelRunFree);
    EXPECT_EQ(0, levelRunSetTemporaryDirectory(run.get(), (temporary.path() + "/").c_str()));
    return run;
}

struct Watch {
    LevelRun* run;
    float cancel_at;
    Result* result;
};

int watch_progress(void* context, float fraction) {
    const Watch& watch = *static_cast<Watch*>(context);
    watch.result->fractions.push_back(fraction);
    if (fraction >= watch.cancel_at) {
        levelRunCancel(watch.run);
    }
    return 0;
}

void take_words(void* context, LevelWords /*kind*/, const char* text) {
    static_cast<Watch*>(context)->result->words += text;
}

Result level(const Task& task) {
    const TempDir temporary;
    const TempDir place;
    const RunObject run = new_run(temporary);
    Result result;
    Watch watch{run.get(), task.cancel_at, &result};
    for (const std::string& option : task.options) {
        EXPECT_EQ(0, levelRunAddOption(run.get(), option.c_str()));
    }
    for (const LevelSwitch on : task.switches) {
        levelRunSwitch(run.get(), on, 1);
    }
    levelRunSetProgress(run.get(), watch_progress, &watch);
    levelRunSetMessages(run.get(), take_words, &watch);
    result.status = levelRunFile(run.get(), task.input.c_str(), (place / "out").c_str());
    result.kind = levelRunOutcome(run.get())->kind;
    result.reason = levelRunOutcome(run.get())->reason;
    if (file_exists(place / "out")) {
        result.output = read_text(place / "out");
    }
    if (const LevelFindings* found = levelRunFindings(run.get())) {
        result.gains.assign(found->gains, found->gains + found->gain_count);
    }
    result.left = temporary.entries();
    levelRunDiscardIntermediates(run.get());
    EXPECT_THAT(temporary.entries(), testing::IsEmpty());
    return result;
}

/** Speech that is long enough for the helper thread, short speech, silence, and no file at all. */
std::vector<std::string> write_recordings(const TempDir& folder) {
    std::vector<std::string> paths;
    for (int i = 0; i < QUORVANE_RECORDINGS; ++i) {
        const std::string path = folder / std::to_string(i) + ".x";
        const int channels = 1 + i % 2;
        switch (i % 5) {
            case 0:
                write_sound(path, signals::speech(3.2 + 0.02 * i, 44100, channels), kWavFloat);
                break;
            case 1:
                write_sound(path, signals::speech(1.5 + 0.02 * i, 16000, channels),
                            SF_FORMAT_AIFF | SF_FORMAT_PCM_24);
                break;
            case 2:
                write_sound(path, signals::speech(1.0 + 0.02 * i, 8000, channels),
                            SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
                break;
            case 3:
                write_sound(path, signals::silence(20000 + i, 8000, channels), kWav16);
                break;
            default:
                break;
        }
        paths.push_back(path);
    }
    return paths;
}

Task task_of(int thread, int recording, const std::string& path) {
    const int number = thread * 7 + recording;
    Task task{path,
              {"--segment-tolerance=" + std::to_string(1 + number % 4),
               "--reduce-loud-level-diff=" + std::to_string(1 + number % 5),
               "--calc-rms-floor-gain_limit=" + std::to_string(3 * (1 + number % 6)),
               "--bit-depth=" + std::to_string(number % 3 == 0 ? 24 : 0)},
              {},
              recording % 5 == 1 && thread % 2 == 0 ? 0.3F : 2.0F};
    for (int i = 0; i < 6; ++i) {
        if ((number + thread) >> i & 1) {
            task.switches.push_back(static_cast<LevelSwitch>(i));
        }
    }
    return task;
}

TEST(Threads, LevelSideBySideWhatEachWouldLevelAlone) {
    const TempDir folder;
    const std::vector<std::string> paths = write_recordings(folder);
    const auto level_all = [&paths](int thread, std::vector<Result>& results) {
        for (std::size_t i = 0; i < paths.size(); ++i) {
            results.push_back(level(task_of(thread, static_cast<int>(i), paths[i])));
        }
    };
    std::vector<std::vector<Result>> alone(QUORVANE_THREADS);
    std::vector<std::vector<Result>> together(QUORVANE_THREADS);
    const CapturedOutput captured;
    for (int t = 0; t < QUORVANE_THREADS; ++t) {
        level_all(t, alone[static_cast<std::size_t>(t)]);
    }
    std::vector<std::thread> threads;
    for (int t = 0; t < QUORVANE_THREADS; ++t) {
        threads.emplace_back([&, t] { level_all(t, together[static_cast<std::size_t>(t)]); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    int leveled = 0;
    int cancelled = 0;
    for (std::size_t t = 0; t < alone.size(); ++t) {
        for (std::size_t i = 0; i < paths.size(); ++i) {
            SCOPED_TRACE(testing::Message() << "thread " << t << ", recording " << i);
            EXPECT_TRUE(alone[t][i] == together[t][i]);
            leveled += static_cast<int>(alone[t][i].kind == kLevelLeveled);
            cancelled += static_cast<int>(alone[t][i].kind == kLevelCancelled);
            if (i % 5 == 4) {
                EXPECT_EQ(1, together[t][i].status);
                EXPECT_EQ("Could not find " + paths[i] + "\n", together[t][i].words);
            }
        }
    }
    EXPECT_GE(leveled, QUORVANE_THREADS * 2);
    EXPECT_EQ((QUORVANE_THREADS + 1) / 2 * (QUORVANE_RECORDINGS / 5), cancelled);
    EXPECT_NE(alone[0][0].output, alone[1][0].output) << "unlike options";
    EXPECT_EQ(0, gCancelled) << "a run's own cancellation";
    EXPECT_EQ("", captured.out() + captured.err());
}

class RunObjects : public testing::Test {
  protected:
    RunObjects() { write_sound(in, signals::speech(3.0, 8000), kWav16); }

    int level(LevelRun* run) { return levelRunFile(run, in.c_str(), out.c_str()); }

    const EngineSwitches switches;
    const TempDir temporary;
    const TempDir dir;
    const std::string in = dir / "in.wav";
    const std::string out = dir / "out.wav";
};

TEST_F(RunObjects, StayCancelledByThemselvesAndByAllUntilCleared) {
    const RunObject run = new_run(temporary);
    const RunObject other = new_run(temporary);
    levelRunCancel(run.get());
    EXPECT_EQ(3, level(run.get()));
    EXPECT_EQ(kLevelCancelled, levelRunOutcome(run.get())->kind);
    EXPECT_EQ(0, level(other.get()));
    levelRunClearCancel(run.get());
    EXPECT_EQ(0, level(run.get()));
    levelRequestCancel();
    EXPECT_EQ(3, level(run.get()));
    EXPECT_EQ(3, level(other.get()));
    levelClearCancel();
}

TEST_F(RunObjects, KeepTheirOutcomeWhileOthersRun) {
    const RunObject first = new_run(temporary);
    const RunObject second = new_run(temporary);
    levelRunSwitch(first.get(), kLevelCollectFindings, 1);
    EXPECT_EQ(0, level(first.get()));
    EXPECT_EQ(kLevelLeveled, levelOutcome()->kind) << "the last run on this thread";
    EXPECT_EQ(1, levelRunFile(second.get(), (dir / "none.wav").c_str(), out.c_str()));
    EXPECT_THAT(levelRunOutcome(second.get())->cause, HasSubstr("Could not find"));
    EXPECT_EQ(kLevelLeveled, levelRunOutcome(first.get())->kind);
    EXPECT_EQ(61U, levelRunFindings(first.get())->gain_count) << "3 s of 50 ms, and one to spare";
    EXPECT_EQ(nullptr, levelRunFindings(second.get()));
}

int start_another(void* context, float /*fraction*/) {
    auto& statuses = *static_cast<std::vector<int>*>(context);
    const RunObject another(levelRunNew(), levelRunFree);
    statuses.push_back(levelRunFile(another.get(), "", ""));
    EXPECT_THAT(levelRunOutcome(another.get())->cause, HasSubstr("another run is under way"));
    levelHideIntermediates(1);
    levelKeepIntermediates(1);
    return 0;
}

TEST_F(RunObjects, AreNotDisturbedFromTheirCallbacks) {
    const RunObject run = new_run(temporary);
    std::vector<int> statuses;
    levelRunSetProgress(run.get(), start_another, &statuses);
    EXPECT_EQ(0, level(run.get()));
    EXPECT_THAT(statuses, testing::Each(1));
    EXPECT_THAT(temporary.entries(), testing::IsEmpty());
    const RunObject later = new_run(temporary);
    EXPECT_EQ(0, level(later.get()));
    EXPECT_THAT(temporary.entries(), testing::Not(testing::IsEmpty())) << "kept";
}

int refuse_delivery(void* /*context*/, const char* /*final*/, const char* /*output*/) {
    return 1;
}

TEST_F(RunObjects, FailWhenTheOutputIsNotDelivered) {
    const RunObject run = new_run(temporary);
    levelRunSetDelivery(run.get(), refuse_delivery, nullptr);
    EXPECT_EQ(1, level(run.get()));
    EXPECT_EQ(kLevelFailed, levelRunOutcome(run.get())->kind);
    EXPECT_EQ("the output " + out + " could not be delivered", levelRunOutcome(run.get())->reason);
}

int break_assertion(void* /*context*/, float /*fraction*/) {
    segment::require(false, "dCost >= 0.0");
    return 0;
}

/** A platform whose delivery succeeds or not. */
struct Platform {
    std::string folder;
    int answer = 0;
    int deliveries = 0;
};

char* folder_of_platform(void* context) {
    return strdup(static_cast<Platform*>(context)->folder.c_str());
}

int deliver_by_platform(void* context, const char* final_path, const char* output) {
    Platform& platform = *static_cast<Platform*>(context);
    ++platform.deliveries;
    return platform.answer != 0 ? platform.answer : rename(final_path, output);
}

TEST(Platform, IsSetAtRunTimeAndItsDeliveryMayFail) {
    const TempDir temporary;
    const TempDir dir;
    write_sound(dir / "in.wav", signals::speech(2.0, 16000), kWav16);
    const std::string in = dir / "in.wav";
    const std::string out = dir / "out.wav";
    std::string words[] = {"", "--input-file", in, "--output-file", out};
    char* argv[] = {&words[0][0], &words[1][0], &words[2][0], &words[3][0], &words[4][0], nullptr};
    Platform platform{temporary.path() + "/"};
    const LevelPlatform functions{&platform, folder_of_platform, deliver_by_platform};
    const auto show_nothing = [](void*, float) { return 0; };
    levelSetPlatform(&functions);
    EXPECT_EQ(0, levelMain(5, argv, nullptr, show_nothing, nullptr));
    EXPECT_TRUE(file_exists(out));
    platform.answer = 1;
    CapturedOutput captured;
    EXPECT_EQ(1, levelMain(5, argv, nullptr, show_nothing, nullptr));
    levelSetPlatform(nullptr);
    EXPECT_EQ(2, platform.deliveries);
    EXPECT_EQ(kLevelFailed, levelOutcome()->kind);
    levelDiscardIntermediates();
}

TEST_F(RunObjects, FailWhereAnAssertionOfTheEngineIsBroken) {
    const RunObject run = new_run(temporary);
    levelRunSetProgress(run.get(), break_assertion, nullptr);
    EXPECT_EQ(1, level(run.get()));
    EXPECT_THAT(levelRunOutcome(run.get())->reason, HasSubstr("Assertion failed: dCost >= 0.0"));
    EXPECT_DEATH(segment::require(false, "dCost >= 0.0"), "Assertion failed") << "outside a run";
}

}  // namespace
