#ifndef QUORVANE_APP_MAIN_WINDOW_CONTROLLER_H
#define QUORVANE_APP_MAIN_WINDOW_CONTROLLER_H

#import <AppKit/AppKit.h>

@class FlatButton;
@class ProgressView;
@class QuorvaneController;

// The main window: shows one view at a time, known by the name of its interface file ("InputView",
// "ProgressView", "CreditsView"), and turns what the user drops or opens into batches of the queue.
@interface MainWindowController : NSWindowController {
    NSMutableDictionary *viewControllers;
    NSViewController *currentViewController;
    IBOutlet NSView *mainView;
    QuorvaneController *quorvane;
    ProgressView *_progressViewController;
    IBOutlet FlatButton *aboutButton;
    NSMutableArray *_failures;        // texts, of the batch that runs
    NSMutableArray *_waitingBatches;  // arrays of paths, queued while an earlier batch shows save panels
    BOOL _isQueueing;
}

@property(nonatomic, retain) NSMutableDictionary *viewControllers;
@property(nonatomic, retain) NSViewController *currentViewController;
@property(nonatomic, retain) NSView *mainView;
@property(nonatomic, retain) QuorvaneController *quorvane;

- (NSViewController *)viewControllerForName:(NSString *)name;
- (void)activateViewController:(NSViewController *)controller;

- (IBAction)about:(id)sender;
- (IBAction)back:(id)sender;
- (IBAction)quit:(id)sender;
- (IBAction)addFiles:(id)sender;

// Queues the files at the paths as one batch.
- (void)handleDroppedInputs:(NSArray *)paths;

- (void)onQuorvaneCompleted:(NSNotification *)notification;
- (void)handleCompletion:(NSTimer *)timer;

@end

#endif
