#ifndef QUORVANE_APP_CREDITS_VIEW_H
#define QUORVANE_APP_CREDITS_VIEW_H

#import <AppKit/AppKit.h>

@class MainWindowController;

// The credits inside the main window.
@interface CreditsView : NSViewController {
    MainWindowController *mainWindowController;
}

@property(nonatomic, assign) MainWindowController *mainWindowController;

@end

#endif
