#ifndef QUORVANE_APP_FLAT_BUTTON_H
#define QUORVANE_APP_FLAT_BUTTON_H

#import <AppKit/AppKit.h>

// A button without relief: one colour per state under a thin white title.
@interface FlatButton : NSButton {
    NSColor *_bgColor;
    NSColor *_disabledColor;
    NSColor *_highlightColor;
}

@property(nonatomic, retain) NSColor *bgColor;
@property(nonatomic, retain) NSColor *disabledColor;
@property(nonatomic, retain) NSColor *highlightColor;

@end

// Gives its button the colours of an action button (dark) or of a normal one (light, the default).
@interface FlatButtonCell : NSButtonCell {
    BOOL _isActionButton;
}

@property(nonatomic, readonly) BOOL isActionButton;

- (void)makeActionButton;
- (void)makeNormalButton;

@end

#endif
