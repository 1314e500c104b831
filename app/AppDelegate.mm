#import "app/AppDelegate.h"

#include <dispatch/dispatch.h>

#import "app/CreditsWindow.h"
#import "app/DarkAudioDropZoneView.h"
#import "app/ErrorPanel.h"
#import "app/MainWindowController.h"

@implementation AppDelegate

@synthesize window = _window;
@synthesize mainWindowController = _mainWindowController;

- (instancetype)init {
    if ((self = [super init])) {
        _windowController = nil;
        _filesToParse = nil;
        _isRunning = NO;
        _window = nil;
        _mainWindowController = nil;
    }
    return self;
}

- (void)dealloc {
    [_windowController release];
    [_filesToParse release];
    [_mainWindowController release];
    [super dealloc];
}

- (void)applicationWillFinishLaunching:(NSNotification *)notification {
}

- (void)applicationDidFinishLaunching:(NSNotification *)notification {
    [[NSUserNotificationCenter defaultUserNotificationCenter] setDelegate:self];
    _windowController = [[MainWindowController alloc] initWithWindowNibName:@"MainWindow"];
    [_windowController showWindow:self];
    [self setMainWindowController:_windowController];
    [self setWindow:[_windowController window]];
    _isRunning = YES;
    [self levelPendingFiles];
}

- (void)levelPendingFiles {
    NSArray *paths = [DarkAudioDropZoneView pathsToOpen:_filesToParse];
    if ([paths count] > 0) {
        [_mainWindowController handleDroppedInputs:paths];
    }
}

- (void)applicationWillTerminate:(NSNotification *)notification {
}

- (BOOL)applicationShouldHandleReopen:(NSApplication *)application
                    hasVisibleWindows:(BOOL)hasVisibleWindows {
    return YES;
}

- (void)handleAppleEvent:(NSAppleEventDescriptor *)event
          withReplyEvent:(NSAppleEventDescriptor *)reply {
}

// Before the end of the launch a later open replaces an earlier one.
- (void)openPaths:(NSArray *)paths {
    NSArray *copied = [paths copy];
    [_filesToParse release];
    _filesToParse = copied;
    if (_isRunning) {
        [self levelPendingFiles];
    }
}

- (void)application:(NSApplication *)application openFiles:(NSArray *)paths {
    [self openPaths:paths];
}

- (BOOL)application:(NSApplication *)application openFile:(NSString *)path {
    [self openPaths:@[ path ]];
    return YES;
}

- (BOOL)userNotificationCenter:(NSUserNotificationCenter *)center
     shouldPresentNotification:(NSUserNotification *)notification {
    return YES;
}

- (void)addFiles:(id)sender {
    [_mainWindowController addFiles:sender];
}

- (void)showCredits:(id)sender {
    for (NSWindow *window in [NSApp windows]) {
        if ([window isVisible] && [[window windowController] isKindOfClass:[CreditsWindow class]]) {
            [window makeKeyAndOrderFront:self];
            return;
        }
    }
    CreditsWindow *credits =
        [[[CreditsWindow alloc] initWithWindowNibName:@"CreditsWindow"] autorelease];
    [credits showWindow:self];
    [[credits window] makeKeyAndOrderFront:self];
}

- (void)showAcknowledgements:(id)sender {
    NSURL *document = [[NSBundle mainBundle] URLForResource:@"Acknowledgements"
                                              withExtension:@"rtf"];
    // The workspace may wait long for another program.
    dispatch_queue_t queue = dispatch_queue_create("quorvane.acknowledgements", nullptr);
    dispatch_async(queue, ^{
        [self openAcknowledgements:document];
    });
    dispatch_release(queue);
}

// Away from the main thread.
- (void)openAcknowledgements:(NSURL *)document {
    if (document && [[NSWorkspace sharedWorkspace] openURL:document]) {
        return;
    }
    presentErrorOnMainQueue(
        errorWithText(@"No program was found to show the acknowledgements.",
                      document ? [NSString stringWithFormat:@"The document is %@", [document path]]
                               : @"The document is missing from the application."));
}

@end
