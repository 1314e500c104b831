#import "app/AppDelegate.h"

#import "app/CreditsWindow.h"
#import "app/MainWindowController.h"
#import "tests/app/support.h"

namespace {

class Delegate : public AppTest {
   protected:
    Delegate() : delegate([[AppDelegate alloc] init]) {
        [[NSUserDefaults standardUserDefaults] setFloat:60 forKey:@"CompletionPause"];
    }

    ~Delegate() override {
        [[NSNotificationCenter defaultCenter] removeObserver:[delegate mainWindowController]];
        [[delegate window] orderOut:nil];
        [delegate release];
    }

    void launch() {
        [delegate applicationWillFinishLaunching:nil];
        [delegate applicationDidFinishLaunching:nil];
    }

    static std::vector<std::string> inputs(std::size_t count) {
        EXPECT_TRUE(spinUntil([count] { return engine.calls.size() >= count; }));
        spin(0.05);
        std::vector<std::string> paths;
        for (const auto &call : engine.calls) {
            paths.push_back(call[2]);
        }
        return paths;
    }

    AppDelegate *delegate;
};

TEST_F(Delegate, FilesOpenedBeforeLaunchAreQueuedAtItsEndAndTheLastOpenWins) {
    EXPECT_TRUE([delegate application:NSApp openFile:@"/first.wav"]);
    NSMutableArray *files = [NSMutableArray arrayWithObjects:@"/a.wav", @"/b.wav", nil];
    [delegate application:NSApp openFiles:files];
    [files removeAllObjects];
    EXPECT_TRUE(engine.calls.empty());
    launch();
    EXPECT_EQ(inputs(2), (std::vector<std::string>{"/a.wav", "/b.wav"}));
    EXPECT_TRUE([[delegate window] isVisible]);
}

TEST_F(Delegate, FilesOpenedAfterLaunchAreQueuedAtOnceBehindTheRest) {
    launch();
    EXPECT_TRUE(engine.calls.empty());
    EXPECT_TRUE([delegate application:NSApp openFile:@"/a.wav"]);
    [delegate application:NSApp openFiles:@[ @"/b.wav", @"/c.wav" ]];
    EXPECT_EQ(inputs(3), (std::vector<std::string>{"/a.wav", "/b.wav", "/c.wav"}));
    NSUserNotificationCenter *center = [NSUserNotificationCenter defaultUserNotificationCenter];
    EXPECT_EQ([center delegate], delegate);
    EXPECT_TRUE([delegate userNotificationCenter:center shouldPresentNotification:nil]);
    [center setDelegate:nil];
}

TEST_F(Delegate, CreditsOpenInTheirOwnStyleAndCloseThemselves) {
    [delegate showCredits:nil];
    NSWindow *window = nil;
    for (NSWindow *candidate in [NSApp windows]) {
        if ([[candidate windowController] isKindOfClass:[CreditsWindow class]]) {
            window = candidate;
        }
    }
    ASSERT_NE(window, nil);
    EXPECT_TRUE([window isVisible]);
    int fields = 0;
    for (NSTextField *field in [[window contentView] subviews]) {
        if ([field isKindOfClass:[NSTextField class]]) {
            const bool heading = [field tag] >= 100;
            EXPECT_EQ(text([[field font] fontName]), heading ? "Exo2-Bold" : "Exo2-Regular");
            EXPECT_EQ([[field font] pointSize], heading ? 13 : 12);
            EXPECT_NEAR([[field textColor] redComponent], heading ? 0.8 : 0.7, 1e-6);
            ++fields;
        }
    }
    EXPECT_GE(fields, 6);
    [[window windowController] close:nil];
    EXPECT_FALSE([window isVisible]);
}

TEST_F(Delegate, AcknowledgementsWithoutAViewerAreAnErrorInWordsOnly) {
    [delegate showAcknowledgements:nil];
    spin(0.05);
    EXPECT_EQ(desktop.opened, "Acknowledgements.rtf");
    EXPECT_TRUE(desktop.errors.empty());
    desktop.viewer = false;
    [delegate showAcknowledgements:nil];
    ASSERT_TRUE(spinUntil([] { return !desktop.errors.empty(); }));
    EXPECT_NE(desktop.errors[0].find("Acknowledgements.rtf"), std::string::npos);
}

}  // namespace
