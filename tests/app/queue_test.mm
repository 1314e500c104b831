#import "app/QuorvaneController.h"

#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <stdexcept>

#import "tests/app/support.h"
#include "tests/support/signals.h"

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

    // Queues the end of the batch and waits for it.
    void finish() {
        const std::size_t ends = posted(QuorvaneQueueCompletedNotification).size() + 1;
        [controller queueItemAtPath:nil options:nil];
        EXPECT_TRUE(
            spinUntil([&] { return posted(QuorvaneQueueCompletedNotification).size() == ends; }));
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
        if (engine.calls.size() == 1) {
            EXPECT_EQ(progress(item, 0.25f), 0);
        }
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

    finish();
    EXPECT_EQ(posted().size(), 202u);
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
    EXPECT_TRUE([uuids containsObject:string(progress.value(QuorvaneOutputUUIDKey))]);
    for (const Posted &notification : posted()) {
        EXPECT_FALSE(notification.onMainThread);
    }
}

TEST_F(Queue, OutputComesFromOptionsAndSuffixAndASavePanelEvenIfCancelled) {
    const struct {
        NSString *suffix;
        const char *input, *proposed;
        NSDictionary *options;
    } rows[] = {
        {nil, "talk.wav", "talk-leveled.wav", nil},
        {nil, "a talk.part.AIFF", "a talk.part-leveled.AIFF", nil},
        {@"_even", "talk.wav", "talk_even.wav", nil},
        {@"", "talk.wav", "talk.wav", nil},
        {nil, "talk.wav", "/usr/talk-leveled.wav", @{QuorvaneOutputFolderKey : @"/usr"}},
        {nil, "talk.wav", "z.wav", @{QuorvaneOutputFilenameKey : @"z.wav"}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.proposed);
        setDefault(@"suffix", row.suffix);
        for (const bool confirm : {true, false}) {
            desktop.confirm = confirm;
            engine.calls.clear();
            add(path(row.input), row.options);
            finish();
            const std::string proposed = std::filesystem::path(folder.path()) / row.proposed;
            EXPECT_EQ(desktop.proposed.back(), proposed);
            EXPECT_EQ(engine.calls.at(0)[4], proposed);
        }
    }
    desktop.confirm = true;
    desktop.chosen = "/elsewhere/other.wav";
    NSDictionary *second = @{QuorvaneBatchIndexKey : @2};
    add(path("talk.wav"), second);
    addTo("/x/y/done.wav", path("talk.wav"));
    EXPECT_EQ(desktop.proposed.size(), 13u);  // none for an output that the options name
    finish();
    const std::vector<Posted> items = posted(QuorvaneCompletedNotification);
    EXPECT_EQ(items[12].value(QuorvaneOutputFolderKey), "/elsewhere");
    EXPECT_EQ(items[12].value(QuorvaneOutputFilenameKey), "other.wav");
    EXPECT_EQ(items[12].value(QuorvaneBatchIndexKey), "2");
    EXPECT_EQ(items[13].value(QuorvaneOutputFolderKey), "/x/y");
    EXPECT_EQ(items[13].value(QuorvaneOutputFilenameKey), "done.wav");
}

TEST_F(Queue, OnlyAnExceptionFailsAnItemAndTheQueueGoesOn) {
    write("text.wav");
    write_sound(path("throws.wav"), signals::sine(0.5, 1000.0, 0.1));
    engine.run = [this](const Arguments &arguments, auto...) {
        if (arguments[2] == path("throws.wav")) {
            throw std::runtime_error("out of luck");
        }
        if (arguments[2] == path("text.wav")) {
            engine.discards = 0;  // of what an earlier test left
        }
        return arguments[2] == path("cancelled.wav") ? 3 : 1;
    };
    for (const char *input : {"text.wav", "throws.wav", "cancelled.wav"}) {
        addTo("/out.wav", path(input));
    }
    NSUserNotificationCenter *center = [NSUserNotificationCenter defaultUserNotificationCenter];
    [center deliverNotification:[[[NSUserNotification alloc] init] autorelease]];
    finish();
    EXPECT_EQ(delivered(), 0u);
    const char *const rows[][3] = {
        {"quorvaneCompleted", "completed", "text.wav is not an audio file that can be read."},
        {"quorvaneFailed", "failed", "throws.wav: out of luck"},
        {"quorvaneCompleted", "completed", ""},
        {"quorvaneQueueCompleted", "completed", ""}};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(posted()[i].name, rows[i][0]);
        EXPECT_EQ(posted()[i].value(QuorvaneProcessStateKey), rows[i][1]);
        EXPECT_EQ(posted()[i].item[text(QuorvaneFailureReasonKey)], rows[i][2]);
    }
    // What each has left goes before the next one, or at once where it was cancelled.
    EXPECT_EQ(engine.discards, 3);
    EXPECT_EQ(posted()[3].item.size(), 2u);  // state and UUID, nothing of a file
    EXPECT_NE(posted()[3].value(QuorvaneOutputUUIDKey), "");
}

TEST_F(Queue, WaitsWhileAnotherProcessUsesTheTemporaryDirectory) {
    char *directory = copyTemporaryDirectory();
    const std::string lock = std::string(directory) + "Quorvane.lock";
    free(directory);
    EXPECT_EQ(lock, text(NSTemporaryDirectory()) + "/Quorvane.lock");
    const int other = open(lock.c_str(), O_CREAT | O_RDWR, 0600);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    addTo("/out.wav", "/in.wav");
    spin(0.3);
    EXPECT_TRUE(engine.calls.empty());
    close(other);
    finish();
    EXPECT_EQ(engine.calls.size(), 1u);
}

using Hooks = AppTest;

TEST_F(Hooks, FinalFileReplacesAFileOrALinkAndNeverAFolder) {
    write("folder/keep", "kept");
    write("linked.wav", "kept");
    write("old.wav", "old and longer");
    std::filesystem::create_symlink(path("folder"), path("to-folder.wav"));
    std::filesystem::create_symlink(path("linked.wav"), path("to-file.wav"));
    std::filesystem::create_symlink("nowhere", path("to-nothing.wav"));
    std::filesystem::create_directory(path("empty.wav"));
    for (const char *name : {"old.wav", "to-folder.wav", "to-file.wav", "to-nothing.wav"}) {
        SCOPED_TRACE(name);
        moveFinalFile(write("_final.wav", "new").c_str(), path(name).c_str());
        EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(path(name))));
        EXPECT_EQ(read_text(path(name)), "new");
    }
    EXPECT_EQ(read_text(path("folder/keep")), "kept");
    EXPECT_EQ(read_text(path("linked.wav")), "kept");
    spin(0.05);
    EXPECT_TRUE(desktop.errors.empty());
    moveFinalFile(write("_final.wav", "new").c_str(), path("empty.wav").c_str());
    moveFinalFile(path("absent.wav").c_str(), path("old.wav").c_str());
    ASSERT_TRUE(spinUntil([] { return desktop.errors.size() == 2; }));
    EXPECT_THAT(desktop.errors[0], testing::HasSubstr("Is a directory"));
    EXPECT_TRUE(std::filesystem::is_directory(path("empty.wav")));
    EXPECT_THAT(desktop.errors[1], testing::HasSubstr("cannot move"));
    EXPECT_FALSE(file_exists(path("old.wav")));  // removed before the move
}

TEST_F(Hooks, FinalFileReplacesTheOutputOrStaysAndTheErrorNamesFileAndCause) {
    const std::string source = write("_final.wav", "new");
    write("folder.wav/keep", "kept");
    const std::pair<std::string, const char *> rows[] = {
        {path("folder.wav"), "Is a directory"},  // is not removed
        {"/proc/version", "cannot remove"},
        {path("missing/out.wav"), "No such file or directory"},
    };
    for (const auto &[destination, cause] : rows) {
        SCOPED_TRACE(destination);
        desktop.errors.clear();
        moveFinalFile(source.c_str(), destination.c_str());
        EXPECT_TRUE(desktop.errors.empty());  // the engine's thread does not wait for the user
        ASSERT_TRUE(spinUntil([] { return !desktop.errors.empty(); }));
        const std::string name = std::filesystem::path(destination).filename();
        EXPECT_THAT(desktop.errors[0],
                    testing::StartsWith('"' + name + "\" could not be written."));
        EXPECT_THAT(desktop.errors[0], testing::HasSubstr(cause));
        EXPECT_THAT(desktop.errors[0], testing::HasSubstr(source));
    }
    EXPECT_EQ(read_text(path("folder.wav/keep")), "kept");
    // The next file does not discard the result that is told to lie there.
    QuorvaneController *controller = [[[QuorvaneController alloc] init] autorelease];
    engine.run = [&](auto...) { return moveFinalFile(source.c_str(), "/missing/out.wav"), 0; };
    for (const char *output : {"/a.wav", "/b.wav"}) {
        [controller queueItemAtPath:@"/in.wav" options:@{@"output_path" : string(output)}];
    }
    ASSERT_TRUE(spinUntil([] { return desktop.errors.size() == 3; }));
    EXPECT_EQ(engine.discards, 0);
    desktop.errors.erase(desktop.errors.begin(), desktop.errors.begin() + 2);
    const std::string output = write("talk-leveled.wav", "old and longer");
    moveFinalFile(source.c_str(), output.c_str());
    EXPECT_EQ(read_text(output), "new");
    EXPECT_FALSE(file_exists(source));
    spin(0.05);
    EXPECT_EQ(desktop.errors.size(), 1u);
}

TEST_F(Hooks, ErrorsDuringAnErrorComeTogetherAfterIt) {
    const std::string source = write("_final.wav");
    desktop.whileOpen = [&source] {
        for (int i = 0; i < 12; ++i) {
            moveFinalFile(source.c_str(), ("/missing/" + std::to_string(i) + ".wav").c_str());
        }
        static bool arrived;  // after all of them, as the main queue keeps its order
        arrived = false;
        dispatch_async(dispatch_get_main_queue(), ^{
            arrived = true;
        });
        EXPECT_TRUE(spinUntil([] { return arrived; }));
    };
    moveFinalFile(source.c_str(), "/missing/first.wav");
    ASSERT_TRUE(spinUntil([] { return desktop.errors.size() == 2; }));
    EXPECT_THAT(desktop.errors[1], testing::StartsWith("12 more errors occurred."));
    EXPECT_THAT(desktop.errors[1], testing::HasSubstr("and 2 more."));
}

}  // namespace
