#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <iostream>

#import "app/CircularProgress.h"
#import "app/DarkAudioDropZoneView.h"
#import "app/FlatButton.h"
#import "app/InputView.h"
#import "app/MainWindowController.h"
#import "app/ProgressView.h"
#import "app/QuorvaneController.h"
#import "tests/app/support.h"
#include "tests/support/signals.h"

namespace {

class Views : public AppTest {
   protected:
    Views() : window([[MainWindowController alloc] initWithWindowNibName:@"MainWindow"]) {
        [window window];
        setDefault(@"CompletionPause", @0.05);
        [[NSUserNotificationCenter defaultUserNotificationCenter] removeAllDeliveredNotifications];
    }

    ~Views() override {
        [[NSNotificationCenter defaultCenter] removeObserver:window];
        [window release];
    }

    std::string shown() { return text(NSStringFromClass([[window currentViewController] class])); }

    InputView *inputView() {
        return static_cast<InputView *>([window viewControllerForName:@"InputView"]);
    }

    DarkAudioDropZoneView *zone() { return [inputView() dropZone]; }

    ProgressView *progressView() {
        return static_cast<ProgressView *>([window viewControllerForName:@"ProgressView"]);
    }

    FlatButton *aboutButton() { return [window valueForKey:@"aboutButton"]; }

    // The inputs that reached the engine, relative to the test's folder, once the batch is over.
    std::vector<std::string> leveled() {
        EXPECT_TRUE(spinUntil([this] { return shown() == "InputView" && delivered() == 1; }));
        std::vector<std::string> inputs;
        for (const auto &call : engine.calls) {
            inputs.push_back(std::filesystem::path(call[2]).lexically_relative(folder.path()));
        }
        return inputs;
    }

    MainWindowController *window;
};

TEST_F(Views, DropZoneAcceptsAudioFilesAndFoldersThatHoldSome) {
    for (const char *name : {"x.wav", "Y.AIF", "notes.txt", "deep/a/z.Aiff", "texts/a/b.txt"}) {
        write(name);
    }
    std::filesystem::create_directories(path("texts/folder.wav"));
    const std::pair<const char *, bool> rows[] = {{"x.wav", true},      {"Y.AIF", true},
                                                  {"notes.txt", false}, {"deep", true},
                                                  {"texts", false},     {"absent", false}};
    for (const auto &[name, valid] : rows) {
        SCOPED_TRACE(name);
        id<NSDraggingInfo> drag = dragOf({path("notes.txt"), path(name)});
        const NSDragOperation expected = valid ? NSDragOperationCopy : NSDragOperationNone;
        EXPECT_EQ([zone() draggingEntered:drag], expected);
        EXPECT_EQ([zone() draggingUpdated:drag], expected);
        EXPECT_EQ([zone() hasValidDragTarget], valid);
        [zone() draggingExited:drag];
        EXPECT_FALSE([zone() hasValidDragTarget]);
        EXPECT_TRUE(valid || ![zone() performDragOperation:drag]);
    }
    spin(0.1);
    EXPECT_EQ(shown(), "InputView");
    EXPECT_TRUE(engine.calls.empty());
}

TEST_F(Views, DropCollectsAFileOnceForEachFolderLevelThatIsSearched) {
    for (const char *name : {"x.wav", "b/c/y.AIFF", "b/c/d/w.aif", "b/notes.txt"}) {
        write(name);
    }
    std::filesystem::create_directory_symlink(folder.path(), path("b/loop"));
    EXPECT_TRUE([zone() performDragOperation:dragOf({path("x.wav"), path("b")})]);
    std::vector<std::string> inputs = leveled();
    ASSERT_FALSE(inputs.empty());
    EXPECT_EQ(inputs[0], "x.wav");
    std::sort(inputs.begin(), inputs.end());
    // y: the walks of b and c. w: those of b, c and d.
    EXPECT_EQ(inputs, (std::vector<std::string>{"b/c/d/w.aif", "b/c/d/w.aif", "b/c/d/w.aif",
                                                "b/c/y.AIFF", "b/c/y.AIFF", "x.wav"}));
}

TEST_F(Views, BatchNumbersItsFilesAndReturnsToTheDropZone) {
    NSMutableSet *batches = [NSMutableSet set];
    std::atomic<bool> looked{false};
    engine.run = [&](const auto &, LevelProgress progress, NSMutableDictionary *item) {
        [batches addObject:[item objectForKey:QuorvaneBatchUUIDKey]];
        progress(item, 0.5f);
        while (engine.calls.size() == 2 && !looked) {
            usleep(1000);
        }
        return 0;
    };
    [window handleDroppedInputs:@[ @"/in/a.wav", @"/in/b.wav" ]];
    EXPECT_EQ(shown(), "ProgressView");
    NSTextField *info = [progressView() infoLabel];
    EXPECT_TRUE(spinUntil([&] { return text([info stringValue]) == "[2/2] b.wav"; }));
    EXPECT_EQ([[progressView() progress] doubleValue], 0.5);
    looked = true;
    EXPECT_EQ(leveled().size(), 2u);
    EXPECT_EQ([batches count], 1u);
    EXPECT_EQ([[progressView() progress] doubleValue], 0.0);
    EXPECT_EQ(text([info stringValue]), "");
    EXPECT_EQ(text([[[progressView() circularProgress] textLayer] string]), "");
    NSUserNotification *notice = [[[NSUserNotificationCenter defaultUserNotificationCenter]
        deliveredNotifications] lastObject];
    EXPECT_EQ(text([notice title]), "The Quorvane has finished");
    EXPECT_EQ(text([notice informativeText]), "Audio files have been leveled.");
    EXPECT_TRUE(desktop.errors.empty());
}

TEST_F(Views, FailuresAreToldInWordsAndABatchThatArrivesMeanwhileComesAfterThisOne) {
    engine.run = [](const TestEngine::Arguments &arguments, auto...) {
        engine.reason = "the disk is full";
        return arguments[2] == "/good.wav" ? 0 : 1;
    };
    desktop.whileOpen = [this] { [window handleDroppedInputs:@[ @"/good.wav" ]]; };
    write_sound(path("talk.wav"), signals::sine(0.5, 1000.0, 0.1));
    [window handleDroppedInputs:@[ @"/gone.wav", string(path("talk.wav")) ]];
    ASSERT_TRUE(spinUntil([] { return delivered() == 2; }));
    EXPECT_EQ(engine.calls.back()[2], "/good.wav");
    ASSERT_EQ(desktop.errors.size(), 1u);
    EXPECT_EQ(desktop.errors[0], "2 files have problems.|"
                                 "gone.wav cannot be opened: No such file or directory.\n"
                                 "talk.wav: the disk is full");
}

TEST_F(Views, AResultWithADefectIsReportedThoughTheItemIsCompleted) {
    engine.defect = "ends after 100 of 200 frames";
    engine.run = [](auto...) { return 0; };
    [window handleDroppedInputs:@[ @"/cut.wav" ]];
    ASSERT_TRUE(spinUntil([] { return delivered() == 1; }));
    ASSERT_EQ(desktop.errors.size(), 1u);
    EXPECT_EQ(desktop.errors[0], "One file has a problem.|"
                                 "cut.wav was leveled, but ends after 100 of 200 frames");
}

TEST_F(Views, AFailurePanelThatStaysOpenDoesNotHoldUpTheEndOfTheBatch) {
    engine.run = [](auto...) { return 1; };
    bool ended = false;
    desktop.clickOK = [&] { return ended = shown() == "InputView" && delivered() == 1; };
    [window handleDroppedInputs:@[ string(write("bad.wav")) ]];
    ASSERT_TRUE(spinUntil([] { return !desktop.errors.empty(); }));
    spin(0.1);
    EXPECT_TRUE(ended) << "the pause did not end while the panel was open";
    EXPECT_EQ(desktop.errors[0],
              "One file has a problem.|bad.wav is not an audio file that can be read.");
}

TEST_F(Views, BatchEndsWithAPauseAndANoticeUnlessTheDefaultSaysNo) {
    const struct {
        double pause, seconds;  // longer than without one, as only too short can be told
        id notices;
        NSUInteger delivered;
    } rows[] = {{-1, 2.5, nil, 1}, {0, 2.5, @(NO), 1}, {3, 3, @(YES), 2}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.pause);
        setDefault(@"CompletionPause", @(row.pause));
        setDefault(@"PostNotifications", row.notices);
        [window activateViewController:progressView()];
        NSDate *start = [NSDate date];
        [window onQuorvaneCompleted:nil];
        ASSERT_TRUE(spinUntil([this] { return shown() == "InputView"; }));
        EXPECT_GE(-[start timeIntervalSinceNow], row.seconds - 0.01);
        EXPECT_EQ(delivered(), row.delivered);
    }
}

TEST_F(Views, AboutTurnsIntoBackWhileTheCreditsShow) {
    [aboutButton() performClick:nil];
    EXPECT_EQ(shown(), "CreditsView");
    EXPECT_EQ(text([aboutButton() title]), "Back");
    [aboutButton() performClick:nil];
    EXPECT_EQ(shown(), "InputView");
    EXPECT_EQ(text([aboutButton() title]), "About");
    [window about:nil];
    [window handleCompletion:nil];  // a batch that ends meanwhile
    EXPECT_EQ(text([aboutButton() title]), "About");
    EXPECT_EQ([[[window mainView] subviews] count], 1u);
}

TEST_F(Views, OpenPanelOffersAudioFilesAndQueuesTheChosenOnes) {
    desktop.confirm = false;
    [[inputView() addButton] performClick:nil];
    EXPECT_EQ(desktop.title, "Choose Audio Files");
    EXPECT_THAT(desktop.types, testing::StartsWith("wav aif aiff"));
    EXPECT_EQ(shown(), "InputView");
    desktop.confirm = true;
    desktop.chosen = folder.path();  // as one panel hands back where no file is selected
    [inputView() addFiles:nil];
    EXPECT_EQ(shown(), "InputView");
    desktop.chosen = path("a.wav");
    [inputView() addFiles:nil];
    EXPECT_EQ(leveled(), std::vector<std::string>{"a.wav"});
}

}  // namespace
