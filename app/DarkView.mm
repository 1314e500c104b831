#import "app/DarkView.h"

#import "app/Appearance.h"

@implementation DarkView

- (void)drawRect:(NSRect)dirty {
    [grayColor(0.1) set];
    NSRectFill([self bounds]);
}

- (BOOL)isOpaque {
    return YES;
}

@end
