#import "app/MainWindowController.h"

#include <dispatch/dispatch.h>

#import "app/DarkAudioDropZoneView.h"
#import "app/ErrorPanel.h"
#import "app/FlatButton.h"
#import "app/ProgressView.h"
#import "app/QuorvaneController.h"

static const NSTimeInterval kCompletionPauseSeconds = 2.5;

@implementation MainWindowController

@synthesize viewControllers;
@synthesize currentViewController;
@synthesize mainView;
@synthesize quorvane;

- (void)loadWindow {
    [super loadWindow];
    [self setViewControllers:[NSMutableDictionary dictionary]];
    [self setQuorvane:[[[QuorvaneController alloc] init] autorelease]];
    _failures = [[NSMutableArray alloc] init];
    _waitingBatches = [[NSMutableArray alloc] init];
    [static_cast<FlatButtonCell *>([aboutButton cell]) makeActionButton];
    [self activateViewController:[self viewControllerForName:@"InputView"]];

    NSNotificationCenter *center = [NSNotificationCenter defaultCenter];
    [center addObserver:self
               selector:@selector(onQuorvaneCompleted:)
                   name:QuorvaneQueueCompletedNotification
                 object:nil];
    for (NSString *name in @[ QuorvaneCompletedNotification, QuorvaneFailedNotification ]) {
        [center addObserver:self selector:@selector(onItemFinished:) name:name object:nil];
    }
}

- (void)dealloc {
    [[NSNotificationCenter defaultCenter] removeObserver:self];
    [viewControllers release];
    [currentViewController release];
    [mainView release];
    [quorvane release];
    [_progressViewController release];
    [_failures release];
    [_waitingBatches release];
    [super dealloc];
}

- (NSViewController *)viewControllerForName:(NSString *)name {
    NSViewController *controller = [viewControllers objectForKey:name];
    if (!controller) {
        controller = [[[NSClassFromString(name) alloc] initWithNibName:name
                                                                bundle:nil] autorelease];
        [controller setValue:self forKey:@"mainWindowController"];
        [viewControllers setObject:controller forKey:name];
    }
    return controller;
}

- (void)activateViewController:(NSViewController *)controller {
    [[currentViewController view] removeFromSuperview];
    [self setCurrentViewController:controller];
    NSView *view = [controller view];
    [view setFrame:[mainView bounds]];
    [mainView addSubview:view];

    const BOOL showsCredits = controller == [viewControllers objectForKey:@"CreditsView"];
    [aboutButton setTitle:showsCredits ? @"Back" : @"About"];
    [aboutButton setAction:showsCredits ? @selector(back:) : @selector(about:)];
}

- (ProgressView *)progressViewController {
    if (!_progressViewController) {
        _progressViewController =
            [static_cast<ProgressView *>([self viewControllerForName:@"ProgressView"]) retain];
    }
    return _progressViewController;
}

- (void)about:(id)sender {
    [self activateViewController:[self viewControllerForName:@"CreditsView"]];
}

- (void)back:(id)sender {
    [self activateViewController:[self viewControllerForName:@"InputView"]];
}

- (void)quit:(id)sender {
    [NSApp terminate:sender];
}

- (void)windowWillClose:(NSNotification *)notification {
    [NSApp terminate:self];
}

- (void)addFiles:(id)sender {
    NSOpenPanel *panel = [NSOpenPanel openPanel];
    [panel setTitle:@"Choose Audio Files"];
    [panel setAllowsMultipleSelection:YES];
    [panel setCanChooseFiles:YES];
    [panel setCanChooseDirectories:NO];
    [panel setAllowedFileTypes:[DarkAudioDropZoneView allowedFileTypes]];
    if ([panel runModal] == NSModalResponseOK) {
        // GNUstep's panel hands back its folder where no file is selected.
        NSMutableArray *paths = [NSMutableArray array];
        for (NSURL *url in [panel URLs]) {
            if (![DarkAudioDropZoneView isFolder:[url path]]) {
                [paths addObject:[url path]];
            }
        }
        if ([paths count] > 0) {
            [self handleDroppedInputs:paths];
        }
    }
}

// Files can arrive while a save panel of an earlier batch is open: their turn comes after it.
- (void)handleDroppedInputs:(NSArray *)paths {
    [_waitingBatches addObject:[[paths copy] autorelease]];
    if (_isQueueing) {
        return;
    }
    _isQueueing = YES;
    while ([_waitingBatches count] > 0) {
        NSArray *batch = [[[_waitingBatches objectAtIndex:0] retain] autorelease];
        [_waitingBatches removeObjectAtIndex:0];
        [self activateViewController:[self progressViewController]];
        [[self window] display];  // a save panel follows, which holds the main loop up
        [self queueBatch:batch];
    }
    _isQueueing = NO;
}

- (void)queueBatch:(NSArray *)paths {
    NSString *batch = [[NSUUID UUID] UUIDString];
    NSUInteger index = 0;
    for (NSString *path in paths) {
        @autoreleasepool {
            NSDictionary *options = @{
                QuorvaneBatchIndexKey : @(++index),
                QuorvaneBatchTotalKey : @([paths count]),
                QuorvaneBatchUUIDKey : batch,
            };
            [quorvane queueItemAtPath:path options:options];
        }
    }
    [quorvane queueItemAtPath:nil options:nil];
}

// On the engine's thread.
- (void)onItemFinished:(NSNotification *)notification {
    NSString *failure = [[notification object] objectForKey:QuorvaneFailureReasonKey];
    if (!failure) {
        return;
    }
    dispatch_async(dispatch_get_main_queue(), ^{
        [_failures addObject:failure];
    });
}

// On the engine's thread.
- (void)onQuorvaneCompleted:(NSNotification *)notification {
    dispatch_async(dispatch_get_main_queue(), ^{
        const double wanted =
            [[NSUserDefaults standardUserDefaults] doubleForKey:@"CompletionPause"];
        NSTimer *pause =
            [NSTimer timerWithTimeInterval:wanted > 0 ? wanted : kCompletionPauseSeconds
                                    target:self
                                  selector:@selector(handleCompletion:)
                                  userInfo:nil
                                   repeats:NO];
        // A panel that no one answers must not hold up the end of the batch.
        for (NSString *mode in
             @[ NSDefaultRunLoopMode, NSModalPanelRunLoopMode, NSEventTrackingRunLoopMode ]) {
            [[NSRunLoop mainRunLoop] addTimer:pause forMode:mode];
        }
        [self presentFailures];
    });
}

- (void)presentFailures {
    const NSUInteger count = [_failures count];
    if (count == 0) {
        return;
    }
    NSString *description =
        count == 1 ? @"One file has a problem."
                   : [NSString stringWithFormat:@"%u files have problems.", unsigned(count)];
    NSError *error = errorWithText(description, shortList(_failures));
    [_failures removeAllObjects];
    presentErrorOnMainQueue(error);
}

- (void)handleCompletion:(NSTimer *)timer {
    [self activateViewController:[self viewControllerForName:@"InputView"]];
    [[self progressViewController] reset];

    NSUserDefaults *defaults = [NSUserDefaults standardUserDefaults];
    if ([defaults objectForKey:@"PostNotifications"] &&
        ![defaults boolForKey:@"PostNotifications"]) {
        return;
    }
    NSUserNotification *notice = [[[NSUserNotification alloc] init] autorelease];
    [notice setTitle:@"The Quorvane has finished"];
    [notice setInformativeText:@"Audio files have been leveled."];
    [[NSUserNotificationCenter defaultUserNotificationCenter] deliverNotification:notice];
}

@end
