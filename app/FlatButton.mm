#import "app/FlatButton.h"

#import "app/Appearance.h"

static const CGFloat kCornerRadius = 2.0;
static const CGFloat kTitlePoints = 12.0;

@implementation FlatButton

@synthesize bgColor = _bgColor;
@synthesize disabledColor = _disabledColor;
@synthesize highlightColor = _highlightColor;

+ (Class)cellClass {
    return [FlatButtonCell class];
}

- (instancetype)initWithFrame:(NSRect)frame {
    if ((self = [super initWithFrame:frame])) {
        [self adoptCell];
    }
    return self;
}

- (void)awakeFromNib {
    [self adoptCell];
}

// A cell may learn of its button as late as the first drawing, and it colours it before that.
- (void)adoptCell {
    FlatButtonCell *cell = [self cell];
    [cell setControlView:self];
    if (!_bgColor) {
        [cell makeNormalButton];
    }
}

- (void)dealloc {
    [_bgColor release];
    [_disabledColor release];
    [_highlightColor release];
    [super dealloc];
}

- (BOOL)isOpaque {
    return NO;
}

@end

@implementation FlatButtonCell

@synthesize isActionButton = _isActionButton;

- (FlatButton *)button {
    return static_cast<FlatButton *>([self controlView]);
}

- (void)makeActionButton {
    _isActionButton = YES;
    [[self button] setBgColor:rgbColor(0.4, 0.4, 0.4)];
    [[self button] setHighlightColor:rgbColor(0.56, 0.83, 0.96)];
    [[self button] setDisabledColor:rgbColor(0.46, 0.73, 0.96)];
    [[self button] setNeedsDisplay:YES];
}

- (void)makeNormalButton {
    _isActionButton = NO;
    [[self button] setBgColor:rgbColor(0.91, 0.91, 0.91)];
    [[self button] setHighlightColor:rgbColor(0.46, 0.73, 0.96)];
    [[self button] setDisabledColor:rgbColor(0.46, 0.73, 0.96)];
    [[self button] setNeedsDisplay:YES];
}

- (NSColor *)currentColor {
    if (![self isEnabled]) {
        return [[self button] disabledColor];
    }
    return [self isHighlighted] ? [[self button] highlightColor] : [[self button] bgColor];
}

- (void)drawWithFrame:(NSRect)frame inView:(NSView *)view {
    [[self currentColor] set];
    [[NSBezierPath bezierPathWithRoundedRect:frame xRadius:kCornerRadius
                                     yRadius:kCornerRadius] fill];

    NSMutableParagraphStyle *centered = [[[NSMutableParagraphStyle alloc] init] autorelease];
    [centered setAlignment:NSTextAlignmentCenter];
    [centered setLineBreakMode:NSLineBreakByTruncatingTail];
    NSDictionary *look = @{
        NSFontAttributeName : quorvaneFont(@"Exo2-Thin", kTitlePoints),
        NSForegroundColorAttributeName : [NSColor whiteColor],
        NSParagraphStyleAttributeName : centered,
    };
    const CGFloat height = [[self title] sizeWithAttributes:look].height;
    const NSRect line =
        NSMakeRect(NSMinX(frame), NSMidY(frame) - height / 2, NSWidth(frame), height);
    [[self title] drawInRect:line withAttributes:look];
}

@end
