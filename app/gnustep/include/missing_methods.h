#ifndef QUORVANE_APP_GNUSTEP_MISSING_METHODS_H
#define QUORVANE_APP_GNUSTEP_MISSING_METHODS_H

// Methods of AppKit that GNUstep does not have, made in appkit.mm. Included in every Objective-C++
// file by the compiler's command line, so that those files need no word about the platform.

#import <AppKit/AppKit.h>

@interface NSViewController (Quorvane)
- (void)viewDidLoad;
@end

@interface NSPasteboard (Quorvane)
- (NSArray *)readObjectsForClasses:(NSArray *)classes options:(NSDictionary *)options;
@end

#endif
