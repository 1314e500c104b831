#ifndef QUORVANE_APP_APP_DELEGATE_H
#define QUORVANE_APP_APP_DELEGATE_H

#import <AppKit/AppKit.h>

@class MainWindowController;

// Delegate of the application and of the user notification centre.
@interface AppDelegate : NSObject <NSApplicationDelegate, NSUserNotificationCenterDelegate> {
    MainWindowController *_windowController;
    NSArray *_filesToParse;  // paths opened last; queued at launch
    BOOL _isRunning;         // launch has finished
    IBOutlet NSWindow *_window;
    MainWindowController *_mainWindowController;
}

@property(nonatomic, assign) NSWindow *window;
@property(nonatomic, retain) MainWindowController *mainWindowController;

- (IBAction)addFiles:(id)sender;
- (IBAction)showCredits:(id)sender;
- (IBAction)showAcknowledgements:(id)sender;

@end

#endif
