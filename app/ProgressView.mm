#import "app/ProgressView.h"

#include <dispatch/dispatch.h>

#import "app/Appearance.h"
#import "app/CircularProgress.h"
#import "app/QuorvaneController.h"

@implementation ProgressView

@synthesize mainWindowController;
@synthesize progress;
@synthesize infoLabel;
@synthesize circularProgress;

+ (NSString *)infoStringForItem:(NSDictionary *)item {
    return [NSString stringWithFormat:@"[%d/%d] %@",
                                      [[item objectForKey:QuorvaneBatchIndexKey] intValue],
                                      [[item objectForKey:QuorvaneBatchTotalKey] intValue],
                                      [item objectForKey:QuorvaneInputFilenameKey]];
}

- (void)viewDidLoad {
    [super viewDidLoad];
    [progress setIndeterminate:NO];
    [progress setDisplayedWhenStopped:YES];
    [progress setMinValue:0.0];
    [progress setMaxValue:1.0];
    [infoLabel setFont:quorvaneFont(@"Exo2-Regular", 14)];
    [infoLabel setTextColor:[NSColor whiteColor]];
    [[infoLabel cell] setLineBreakMode:NSLineBreakByTruncatingMiddle];
    [[NSNotificationCenter defaultCenter] addObserver:self
                                             selector:@selector(onQuorvaneProgress:)
                                                 name:QuorvaneProgressNotification
                                               object:nil];
    [self reset];
}

- (void)dealloc {
    [[NSNotificationCenter defaultCenter] removeObserver:self];
    [progress release];
    [infoLabel release];
    [circularProgress release];
    [super dealloc];
}

// On the engine's thread.
- (void)onQuorvaneProgress:(NSNotification *)notification {
    NSDictionary *item = [notification object];
    const double fraction = [[item objectForKey:QuorvaneOutputProgressKey] doubleValue];
    NSString *info = [ProgressView infoStringForItem:item];
    dispatch_async(dispatch_get_main_queue(), ^{
        [progress setDoubleValue:fraction];
        [infoLabel setStringValue:info];
    });
}

- (void)reset {
    [progress setDoubleValue:0.0];
    [infoLabel setStringValue:@""];
    [circularProgress reset];
}

@end
