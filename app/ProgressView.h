#ifndef QUORVANE_APP_PROGRESS_VIEW_H
#define QUORVANE_APP_PROGRESS_VIEW_H

#import <AppKit/AppKit.h>

@class CircularProgress;
@class MainWindowController;

// Follows the item that is being leveled.
@interface ProgressView : NSViewController {
    MainWindowController *mainWindowController;
    IBOutlet NSProgressIndicator *progress;
    IBOutlet NSTextField *infoLabel;
    IBOutlet CircularProgress *circularProgress;
}

@property(nonatomic, assign) MainWindowController *mainWindowController;
@property(nonatomic, retain) NSProgressIndicator *progress;
@property(nonatomic, retain) NSTextField *infoLabel;
@property(nonatomic, retain) CircularProgress *circularProgress;

// "[2/5] talk.wav"
+ (NSString *)infoStringForItem:(NSDictionary *)item;

- (void)onQuorvaneProgress:(NSNotification *)notification;
- (void)reset;

@end

#endif
