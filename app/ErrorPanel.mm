#import "app/ErrorPanel.h"

#import <AppKit/AppKit.h>
#include <dispatch/dispatch.h>

static const NSUInteger kMostLinesListed = 10;

// Main thread only.
static NSMutableArray *waiting;
static BOOL presenting;

NSError *errorWithText(NSString *description, NSString *causes) {
    return [NSError errorWithDomain:@"Quorvane"
                               code:1
                           userInfo:@{
                               NSLocalizedDescriptionKey : description,
                               NSLocalizedRecoverySuggestionErrorKey : causes ?: @"",
                           }];
}

NSString *shortList(NSArray *lines) {
    const NSUInteger count = [lines count];
    if (count > kMostLinesListed) {
        NSString *more =
            [NSString stringWithFormat:@"and %u more.", unsigned(count - kMostLinesListed)];
        lines =
            [[lines subarrayWithRange:NSMakeRange(0, kMostLinesListed)] arrayByAddingObject:more];
    }
    return [lines componentsJoinedByString:@"\n"];
}

static NSError *combined(NSArray *errors) {
    if ([errors count] == 1) {
        return [errors objectAtIndex:0];
    }
    NSMutableArray *lines = [NSMutableArray array];
    for (NSError *error in errors) {
        [lines addObject:[NSString stringWithFormat:@"%@ %@", [error localizedDescription],
                                                    [error localizedRecoverySuggestion] ?: @""]];
    }
    return errorWithText(
        [NSString stringWithFormat:@"%u more errors occurred.", unsigned([errors count])],
        shortList(lines));
}

static void present(NSError *error) {
    if (!waiting) {
        waiting = [[NSMutableArray alloc] init];
    }
    [waiting addObject:error];
    if (presenting) {
        return;
    }
    presenting = YES;
    while ([waiting count] > 0) {
        NSError *next = combined([[waiting copy] autorelease]);
        [waiting removeAllObjects];
        [NSApp presentError:next];
    }
    presenting = NO;
}

void presentErrorOnMainQueue(NSError *error) {
    dispatch_async(dispatch_get_main_queue(), ^{
        present(error);
    });
}
