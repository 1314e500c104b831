#import "app/CircularProgress.h"

#include <dispatch/dispatch.h>

#import "app/Appearance.h"
#import "app/QuorvaneController.h"

static const CGFloat kLineWidth = 12.0;
static const CGFloat kTextShare = 0.2;  // of the view's size

@implementation ArcLayer

@synthesize strokeEnd = _strokeEnd;
@synthesize lineWidth = _lineWidth;
@synthesize strokeColor = _strokeColor;

- (void)dealloc {
    [_strokeColor release];
    [super dealloc];
}

- (void)drawInRect:(NSRect)bounds {
    if (_strokeEnd <= 0) {
        return;
    }
    const CGFloat radius = (MIN(NSWidth(bounds), NSHeight(bounds)) - _lineWidth) / 2;
    const NSPoint center = NSMakePoint(NSMidX(bounds), NSMidY(bounds));
    NSBezierPath *path = [NSBezierPath bezierPath];
    if (_strokeEnd >= 1) {
        [path appendBezierPathWithOvalInRect:NSMakeRect(center.x - radius, center.y - radius,
                                                        2 * radius, 2 * radius)];
    } else {
        [path appendBezierPathWithArcWithCenter:center
                                         radius:radius
                                     startAngle:90
                                       endAngle:90 - 360 * _strokeEnd
                                      clockwise:YES];
    }
    [path setLineWidth:_lineWidth];
    [_strokeColor set];
    [path stroke];
}

@end

@implementation CenteredTextLayer

@synthesize string = _string;
@synthesize foregroundColor = _foregroundColor;

- (void)dealloc {
    [_string release];
    [_foregroundColor release];
    [super dealloc];
}

- (void)drawInRect:(NSRect)bounds {
    const CGFloat points = kTextShare * MIN(NSWidth(bounds), NSHeight(bounds));
    NSDictionary *look = @{
        NSFontAttributeName : quorvaneFont(@"Exo2-Thin", points),
        NSForegroundColorAttributeName : _foregroundColor,
    };
    const NSSize size = [_string sizeWithAttributes:look];
    [_string drawAtPoint:NSMakePoint(NSMidX(bounds) - size.width / 2,
                                     NSMidY(bounds) - size.height / 2)
          withAttributes:look];
}

@end

@implementation CircularProgress

@synthesize circleLayer = _circleLayer;
@synthesize textLayer = _textLayer;

- (instancetype)initWithFrame:(NSRect)frame {
    if ((self = [super initWithFrame:frame])) {
        [self commonInit];
    }
    return self;
}

- (instancetype)initWithCoder:(NSCoder *)coder {
    if ((self = [super initWithCoder:coder])) {
        [self commonInit];
    }
    return self;
}

- (void)commonInit {
    if (_circleLayer) {
        return;
    }
    _trackLayer = [[ArcLayer alloc] init];
    [_trackLayer setLineWidth:kLineWidth];
    [_trackLayer setStrokeColor:[NSColor blackColor]];
    [_trackLayer setStrokeEnd:1.0];

    _circleLayer = [[ArcLayer alloc] init];
    [_circleLayer setLineWidth:kLineWidth];
    [_circleLayer setStrokeColor:rgbColor(0.7137, 0.9490, 0.3490)];

    _textLayer = [[CenteredTextLayer alloc] init];
    [_textLayer setForegroundColor:[NSColor whiteColor]];
    [self reset];

    [[NSNotificationCenter defaultCenter] addObserver:self
                                             selector:@selector(onProgress:)
                                                 name:QuorvaneProgressNotification
                                               object:nil];
}

- (void)dealloc {
    [[NSNotificationCenter defaultCenter] removeObserver:self];
    [_trackLayer release];
    [_circleLayer release];
    [_textLayer release];
    [super dealloc];
}

// On the engine's thread.
- (void)onProgress:(NSNotification *)notification {
    const float progress =
        [[[notification object] objectForKey:QuorvaneOutputProgressKey] floatValue];
    dispatch_async(dispatch_get_main_queue(), ^{
        [self showProgress:progress];
    });
}

- (void)showProgress:(float)progress {
    [_circleLayer setStrokeEnd:CGFloat(progress)];
    [_textLayer
        setString:progress > 0
                      ? [NSString stringWithFormat:@"%02d%%", static_cast<int>(progress * 100)]
                      : @""];
    [self setNeedsDisplay:YES];
}

- (void)reset {
    [self showProgress:0];
}

- (void)drawRect:(NSRect)dirty {
    [_trackLayer drawInRect:[self bounds]];
    [_circleLayer drawInRect:[self bounds]];
    [_textLayer drawInRect:[self bounds]];
}

@end
