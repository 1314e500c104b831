#import "app/QuorvaneController.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#import "tests/app/support.h"

namespace {

using Arguments = TestEngine::Arguments;

class Queue : public AppTest {
   protected:
    Queue() : controller([[[QuorvaneController alloc] init] autorelease]) {}

    NSString *add(const std::string &input, NSDictionary *options) {
        return [controller queueItemAtPath:string(input) options:options];
    }

    NSString *addTo(const std::string &output, const std::string &input) {
        return add(input, @{QuorvaneOutputPathKey : string(output)});
    }

    // Queues the end of the batch and waits for it; gives how each item ended.
    std::vector<std::string> finish() {
        const std::size_t ends = posted(QuorvaneQueueCompletedNotification).size() + 1;
        [controller queueItemAtPath:nil options:nil];
        EXPECT_TRUE(
            spinUntil([&] { return posted(QuorvaneQueueCompletedNotification).size() == ends; }));
        std::vector<std::string> names;
        for (const Posted &notification : posted()) {
            if (notification.name != text(QuorvaneProgressNotification)) {
                names.push_back(notification.name);
            }
        }
        return names;
    }

    QuorvaneController *controller;
};

TEST_F(Queue, CallsTheEngineOncePerFileInOrderAwayFromTheMainThread) {
    std::atomic<bool> go{false};
    engine.run = [&go](const Arguments &, LevelProgress progress, NSMutableDictionary *item) {
        EXPECT_FALSE([NSThread isMainThread]);
        EXPECT_EQ(text([item objectForKey:QuorvaneProcessStateKey]), "running");
        EXPECT_EQ([[item objectForKey:QuorvaneOutputProgressKey] floatValue], 0.0f);
        while (!go) {
            usleep(1000);
        }
        EXPECT_EQ(progress(item, 0.25f), 0);
        return 0;
    };
    NSMutableSet *uuids = [NSMutableSet set];
    for (int i = 0; i < 200; ++i) {
        const std::string name = std::to_string(i) + "-\u00e9";
        [uuids addObject:addTo("/out/" + name + ".wav", "/in/" + name + ".wav")];
    }
    EXPECT_EQ([uuids count], 200u);
    EXPECT_LE(engine.calls.size(), 1u);  // queueing did not wait for the engine
    go = true;

    const std::vector<std::string> names = finish();
    EXPECT_EQ(names.size(), 201u);
    EXPECT_EQ(names.back(), "quorvaneQueueCompleted");
    ASSERT_EQ(engine.calls.size(), 200u);
    for (int i = 0; i < 200; ++i) {
        const std::string name = std::to_string(i) + "-\u00e9.wav";
        EXPECT_EQ(engine.calls[i],
                  (Arguments{"", "--input-file", "/in/" + name, "--output-file", "/out/" + name}));
    }
    const Posted progress = posted()[0];
    EXPECT_EQ(progress.name, "quorvaneProgress");
    EXPECT_EQ(progress.value(QuorvaneOutputProgressKey), "0.25");
    EXPECT_EQ(progress.value(QuorvaneInputFilenameKey), "0-\u00e9.wav");
    EXPECT_TRUE([uuids containsObject:[progress.item objectForKey:QuorvaneOutputUUIDKey]]);
    for (const Posted &notification : posted()) {
        EXPECT_FALSE(notification.onMainThread);
    }
}

TEST_F(Queue, ProposesANameFromTheSuffixAndTakesItEvenWhenTheSavePanelIsCancelled) {
    const struct {
        NSString *suffix;
        const char *input;
        const char *proposed;
    } rows[] = {
        {nil, "talk.wav", "talk-leveled.wav"},
        {nil, "a talk.part.AIFF", "a talk.part-leveled.AIFF"},
        {@"_even", "talk.wav", "talk_even.wav"},
        {@"", "talk.wav", "talk.wav"},
    };
    for (const auto &row : rows) {
        for (const bool confirm : {true, false}) {
            SCOPED_TRACE(std::string(row.proposed) + (confirm ? " confirmed" : " cancelled"));
            [[NSUserDefaults standardUserDefaults] removeObjectForKey:@"suffix"];
            if (row.suffix) {
                [[NSUserDefaults standardUserDefaults] setObject:row.suffix forKey:@"suffix"];
            }
            desktop.confirm = confirm;
            engine.calls.clear();
            add(path(row.input), nil);
            finish();
            EXPECT_EQ(desktop.proposed.back(), path(row.proposed));
            EXPECT_EQ(engine.calls.at(0)[4], path(row.proposed));
        }
    }
}

TEST_F(Queue, OutputComesFromTheSavePanelUnlessTheOptionsPresetIt) {
    desktop.chosen = {"/elsewhere/other.wav"};
    add(
        path("talk.wav"),
        @{QuorvaneBatchIndexKey : @(2)});
    desktop.chosen.clear();
    add(path("talk.wav"), @{QuorvaneOutputFolderKey : @"/usr"});
    add(path("talk.wav"), @{QuorvaneOutputFilenameKey : @"z.wav"});
    EXPECT_EQ(desktop.proposed, (std::vector<std::string>{path("talk-leveled.wav"),
                                                          "/usr/talk-leveled.wav", path("z.wav")}));
    addTo("/x/y/done.wav", path("talk.wav"));
    EXPECT_EQ(desktop.proposed.size(), 3u);
    finish();
    const std::vector<Posted> items = posted(QuorvaneCompletedNotification);
    EXPECT_EQ(items[0].value(QuorvaneOutputPathKey), "/elsewhere/other.wav");
    EXPECT_EQ(items[0].value(QuorvaneOutputFolderKey), "/elsewhere");
    EXPECT_EQ(items[0].value(QuorvaneOutputFilenameKey), "other.wav");
    EXPECT_EQ(items[0].value(QuorvaneBatchIndexKey), "2");
    EXPECT_EQ(items[3].value(QuorvaneOutputFolderKey), "/x/y");
    EXPECT_EQ(items[3].value(QuorvaneOutputFilenameKey), "done.wav");
}

TEST_F(Queue, EndOfBatchItemHoldsNothingOfAFile) {
    NSUserNotificationCenter *center = [NSUserNotificationCenter defaultUserNotificationCenter];
    [center deliverNotification:[[[NSUserNotification alloc] init] autorelease]];
    finish();
    EXPECT_EQ([[center deliveredNotifications] count], 0u);
    NSDictionary *item = posted()[0].item;
    EXPECT_EQ([item count], 2u);
    EXPECT_NE([item objectForKey:QuorvaneOutputUUIDKey], nil);
    EXPECT_EQ(posted()[0].value(QuorvaneProcessStateKey), "completed");
    EXPECT_TRUE(engine.calls.empty());
}

TEST_F(Queue, OnlyAnExceptionFailsAnItemAndTheQueueGoesOn) {
    engine.run = [](const Arguments &arguments, auto...) {
        if (arguments[2] == "/throws.wav") {
            throw std::runtime_error("out of luck");
        }
        std::cout << "Reading\n";
        std::cerr << "It is no audio file.";
        return arguments[2] == "/cancelled.wav" ? 3 : 1;
    };
    for (const char *input : {"/noise.wav", "/throws.wav", "/cancelled.wav"}) {
        addTo("/out.wav", input);
    }
    EXPECT_EQ(finish(), (std::vector<std::string>{"quorvaneCompleted", "quorvaneFailed",
                                                  "quorvaneCompleted", "quorvaneQueueCompleted"}));
    const struct {
        const char *state, *reason;
    } rows[] = {
        {"completed", "It is no audio file."}, {"failed", "out of luck"}, {"completed", "(nil)"}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(posted()[i].value(QuorvaneProcessStateKey), rows[i].state);
        EXPECT_EQ(posted()[i].value(QuorvaneFailureReasonKey), rows[i].reason);
    }
}

TEST_F(Queue, WaitsWhileAnotherProcessUsesTheTemporaryDirectory) {
    char *directory = copyTemporaryDirectory();
    const int other =
        open((std::string(directory) + "Quorvane.lock").c_str(), O_CREAT | O_RDWR, 0600);
    free(directory);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    addTo("/out.wav", "/in.wav");
    spin(0.3);
    EXPECT_TRUE(engine.calls.empty());
    close(other);
    finish();
    EXPECT_EQ(engine.calls.size(), 1u);
}

using Hooks = AppTest;

TEST_F(Hooks, TemporaryDirectoryIsTheSystemsWithASlashAtItsEnd) {
    char *copied = copyTemporaryDirectory();
    EXPECT_EQ(std::string(copied), text(NSTemporaryDirectory()) + "/");
    free(copied);
}

TEST_F(Hooks, FinalFileReplacesTheOutput) {
    const std::string source = write("_final.wav", "new");
    const std::string output = write("talk-leveled.wav", "old and longer");
    moveFinalFile(source.c_str(), output.c_str());
    EXPECT_EQ(read(output), "new");
    EXPECT_FALSE(std::filesystem::exists(source));
    spin(0.05);
    EXPECT_TRUE(desktop.errors.empty());
}

TEST_F(Hooks, ErrorsNameTheFileAndTheCauseAndLeaveTheResultWhereItIs) {
    const std::string source = write("_final.wav", "new");
    write("folder.wav/keep", "kept");
    const struct {
        std::string destination;
        const char *cause;
    } rows[] = {
        {path("folder.wav"), "Is a directory"},          // cannot be removed
        {"/proc/version", "No such file or directory"},  // nor can this, and nothing put beside it
        {path("missing/out.wav"), "No such file or directory"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.destination);
        desktop.errors.clear();
        moveFinalFile(source.c_str(), row.destination.c_str());
        EXPECT_TRUE(desktop.errors.empty());  // the engine's thread does not wait for the user
        ASSERT_TRUE(spinUntil([] { return !desktop.errors.empty(); }));
        const std::string name = std::filesystem::path(row.destination).filename();
        EXPECT_EQ(desktop.errors[0].find('"' + name + "\" could not be written."), 0u);
        EXPECT_NE(desktop.errors[0].find(row.cause), std::string::npos) << desktop.errors[0];
        EXPECT_NE(desktop.errors[0].find(source), std::string::npos);
        EXPECT_EQ(read(source), "new");
    }
    EXPECT_EQ(read(path("folder.wav/keep")), "kept");
}

TEST_F(Hooks, ErrorsDuringAnErrorComeTogetherAfterIt) {
    const std::string source = write("_final.wav");
    desktop.whileOpen = [&source] {
        for (int i = 0; i < 12; ++i) {
            moveFinalFile(source.c_str(), ("/missing/" + std::to_string(i) + ".wav").c_str());
        }
        spin(0.1);
    };
    moveFinalFile(source.c_str(), "/missing/first.wav");
    ASSERT_TRUE(spinUntil([] { return desktop.errors.size() == 2; }));
    EXPECT_EQ(desktop.errors[1].find("12 more errors occurred."), 0u);
    EXPECT_NE(desktop.errors[1].find("and 2 more."), std::string::npos);
}

}  // namespace
