#ifndef QUORVANE_APP_CREDITS_WINDOW_H
#define QUORVANE_APP_CREDITS_WINDOW_H

#import <AppKit/AppKit.h>

@class FlatButton;

// The credits in a window of their own, which lives until it is closed.
@interface CreditsWindow : NSWindowController {
    IBOutlet NSView *mainView;
    IBOutlet FlatButton *closeButton;
}

@property(nonatomic, retain) NSView *mainView;
@property(nonatomic, retain) FlatButton *closeButton;

// Text fields with a tag below 100 are names, the others headings.
+ (void)styleTextFieldsIn:(NSView *)view;

- (IBAction)close:(id)sender;

@end

#endif
