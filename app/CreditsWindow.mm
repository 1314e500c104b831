#import "app/CreditsWindow.h"

#import "app/Appearance.h"
#import "app/FlatButton.h"

static const NSInteger kFirstHeadingTag = 100;

@implementation CreditsWindow

@synthesize mainView;
@synthesize closeButton;

+ (void)styleTextFieldsIn:(NSView *)view {
    for (NSView *child in [view subviews]) {
        if ([child isKindOfClass:[NSTextField class]]) {
            auto *field = static_cast<NSTextField *>(child);
            const BOOL heading = [field tag] >= kFirstHeadingTag;
            [field setFont:heading ? quorvaneFont(@"Exo2-Bold", 13)
                                   : quorvaneFont(@"Exo2-Regular", 12)];
            [field setTextColor:grayColor(heading ? 0.8 : 0.7)];
        }
        [self styleTextFieldsIn:child];
    }
}

- (void)windowDidLoad {
    [super windowDidLoad];
    [CreditsWindow styleTextFieldsIn:mainView];
    [static_cast<FlatButtonCell *>([closeButton cell]) makeActionButton];
    [self retain];  // until windowWillClose:
}

- (void)dealloc {
    [mainView release];
    [closeButton release];
    [super dealloc];
}

- (void)close:(id)sender {
    [[self window] close];
}

- (void)windowWillClose:(NSNotification *)notification {
    [self autorelease];
}

@end
