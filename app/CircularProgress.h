#ifndef QUORVANE_APP_CIRCULAR_PROGRESS_H
#define QUORVANE_APP_CIRCULAR_PROGRESS_H

#import <AppKit/AppKit.h>

// An arc that starts at the top and runs clockwise.
@interface ArcLayer : NSObject {
    CGFloat _strokeEnd;
    CGFloat _lineWidth;
    NSColor *_strokeColor;
}

@property(nonatomic) CGFloat strokeEnd;  // 0 nothing, 1 the whole circle
@property(nonatomic) CGFloat lineWidth;
@property(nonatomic, retain) NSColor *strokeColor;

- (void)drawInRect:(NSRect)bounds;

@end

// A line of text in the middle.
@interface CenteredTextLayer : NSObject {
    NSString *_string;
    NSColor *_foregroundColor;
}

@property(nonatomic, copy) NSString *string;
@property(nonatomic, retain) NSColor *foregroundColor;

- (void)drawInRect:(NSRect)bounds;

@end

// The running item's progress as an arc on a track and as a percentage.
@interface CircularProgress : NSView {
    ArcLayer *_trackLayer;
    ArcLayer *_circleLayer;
    CenteredTextLayer *_textLayer;
}

@property(nonatomic, readonly) ArcLayer *circleLayer;
@property(nonatomic, readonly) CenteredTextLayer *textLayer;

- (void)commonInit;
- (void)onProgress:(NSNotification *)notification;
- (void)reset;

@end

#endif
