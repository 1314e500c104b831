#import "app/AppDelegate.h"

#import "app/CreditsWindow.h"
#import "app/MainWindowController.h"
#import "app/QuorvaneController.h"
#import "tests/app/support.h"

namespace {

class Delegate : public AppTest {
   protected:
    Delegate() : delegate([[AppDelegate alloc] init]) { setDefault(@"CompletionPause", @60); }

    ~Delegate() override {
        [[NSNotificationCenter defaultCenter] removeObserver:[delegate mainWindowController]];
        [[delegate window] orderOut:nil];
        [delegate release];
    }

    AppDelegate *delegate;
};

TEST_F(Delegate, OfOpensBeforeLaunchTheLastIsQueuedAndOfThoseAfterItEach) {
    const std::string found = write("below/e.wav");
    write("below/notes.txt");
    [[NSFileManager defaultManager] createDirectoryAtPath:string(path("empty"))
                              withIntermediateDirectories:YES
                                               attributes:nil
                                                    error:NULL];
    EXPECT_TRUE([delegate application:NSApp openFile:@"/first.wav"]);
    NSMutableArray *files = [NSMutableArray arrayWithObjects:@"/a.wav", @"/b.wav", nil];
    [delegate application:NSApp openFiles:files];
    [files removeAllObjects];
    [delegate applicationDidFinishLaunching:nil];
    EXPECT_TRUE([[delegate window] isVisible]);
    EXPECT_TRUE([delegate application:NSApp openFile:@"/c.wav"]);
    [delegate application:NSApp openFiles:@[ @"/d.wav", string(folder.path()) ]];
    EXPECT_TRUE(spinUntil([&] { return posted(QuorvaneQueueCompletedNotification).size() == 3; }));
    std::string inputs;
    for (const auto &call : engine.calls) {
        inputs += call[2];
    }
    EXPECT_EQ(inputs, "/a.wav/b.wav/c.wav/d.wav" + found + found);  // once for each folder
    [delegate application:NSApp openFile:string(path("empty"))];
    spin(0.05);
    EXPECT_EQ(posted(QuorvaneQueueCompletedNotification).size(), 3u);
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
    const NSUInteger windows = [[NSApp windows] count];
    [delegate showCredits:nil];
    EXPECT_EQ([[NSApp windows] count], windows);
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
    ASSERT_TRUE(spinUntil([] { return !desktop.errors.empty(); }));
    EXPECT_EQ(desktop.opened, "Acknowledgements.rtf");
    EXPECT_THAT(desktop.errors[0], testing::HasSubstr("Acknowledgements.rtf"));
}

}  // namespace
