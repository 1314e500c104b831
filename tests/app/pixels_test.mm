#include <cmath>

#import "app/CircularProgress.h"
#import "app/DarkAudioDropZoneView.h"
#import "app/DarkView.h"
#import "app/FlatButton.h"
#import "tests/app/support.h"

namespace {

// One step of 255 for the rounding of the drawing.
constexpr double kTolerance = 1.01 / 255;

struct Color {
    double red, green, blue;
};

void PrintTo(const Color &color, std::ostream *out) {
    *out << color.red << " " << color.green << " " << color.blue;
}

bool near(const Color &a, const Color &b) {
    return std::abs(a.red - b.red) < kTolerance && std::abs(a.green - b.green) < kTolerance &&
           std::abs(a.blue - b.blue) < kTolerance;
}

class Pixels : public AppTest {
   protected:
    // Draws the view by itself in a window that is not shown.
    void draw(NSView *view) {
        NSWindow *window = [[[NSWindow alloc] initWithContentRect:[view frame]
                                                        styleMask:NSBorderlessWindowMask
                                                          backing:NSBackingStoreBuffered
                                                            defer:NO] autorelease];
        [window setReleasedWhenClosed:NO];
        NSView *ground = [[[DarkView alloc] initWithFrame:[view frame]] autorelease];
        [window setContentView:ground];
        [ground addSubview:view];
        [ground display];
        [ground lockFocus];
        bitmap = [[[NSBitmapImageRep alloc] initWithFocusedViewRect:[ground bounds]] autorelease];
        [ground unlockFocus];
        [view removeFromSuperview];
    }

    // Points from the view's lower left corner.
    Color at(double x, double y) {
        const NSInteger row = [bitmap pixelsHigh] - 1 - NSInteger(y);
        NSColor *color = [[bitmap colorAtX:NSInteger(x)
                                         y:row] colorUsingColorSpaceName:NSDeviceRGBColorSpace];
        return {[color redComponent], [color greenComponent], [color blueComponent]};
    }

    NSBitmapImageRep *bitmap = nil;
};

TEST_F(Pixels, DropZoneLightensUnderAUsableDrag) {
    DarkAudioDropZoneView *zone =
        [[[DarkAudioDropZoneView alloc] initWithFrame:NSMakeRect(0, 0, 200, 100)] autorelease];
    [zone awakeFromNib];
    const std::string file = write("x.wav");
    for (const bool highlighted : {false, true}) {
        SCOPED_TRACE(highlighted);
        if (highlighted) {
            [zone draggingEntered:dragOf({file})];
        }
        draw(zone);
        const double fill = highlighted ? 0.15 : 0.1;
        EXPECT_PRED2(near, at(100, 50), (Color{fill, fill, fill}));
        // Along the upper edge: the line lies on two rows, each half covered; dashes of 5, gaps
        // of 3.
        const double alpha = highlighted ? 0.4 : 0.75;
        const double stroke = fill + (1 - fill) * alpha / 2;
        int dashed = 0;
        for (int x = 20; x < 180; ++x) {  // 20 dashes
            dashed += std::abs(at(x, 98).red - stroke) < 0.03 ? 1 : 0;
        }
        EXPECT_NEAR(dashed, 160 * 5 / 8, 20);
    }
}

TEST_F(Pixels, ArcRunsClockwiseFromTheTop) {
    CircularProgress *circle =
        [[[CircularProgress alloc] initWithFrame:NSMakeRect(0, 0, 200, 200)] autorelease];
    const Color track{0, 0, 0};
    const Color arc{0.7137, 0.9490, 0.3490};
    const struct {
        double fraction;
        Color atOneO_Clock, right, bottom, left, atElevenO_Clock;
    } rows[] = {
        {0, track, track, track, track, track}, {0.3, arc, arc, track, track, track},
        {0.6, arc, arc, arc, track, track},     {0.999, arc, arc, arc, arc, arc},
        {1, arc, arc, arc, arc, arc},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.fraction);
        [[circle circleLayer] setStrokeEnd:row.fraction];
        draw(circle);
        // The middle of the line is 94 from the middle of the view: cos and sin of 60 degrees.
        EXPECT_PRED2(near, at(147, 181), row.atOneO_Clock);
        EXPECT_PRED2(near, at(194, 100), row.right);
        EXPECT_PRED2(near, at(100, 5), row.bottom);
        EXPECT_PRED2(near, at(5, 100), row.left);
        EXPECT_PRED2(near, at(52, 181), row.atElevenO_Clock);
        EXPECT_PRED2(near, at(194 - 8, 100), (Color{0.1, 0.1, 0.1}));  // 12 wide
        EXPECT_PRED2(near, at(189, 100), row.right);
    }
}

TEST_F(Pixels, ButtonColoursFollowTheState) {
    const struct {
        bool action, enabled, pressed;
        Color color;
    } rows[] = {
        {true, true, false, {0.4, 0.4, 0.4}},     {true, true, true, {0.56, 0.83, 0.96}},
        {true, false, false, {0.46, 0.73, 0.96}}, {false, true, false, {0.91, 0.91, 0.91}},
        {false, true, true, {0.46, 0.73, 0.96}},  {false, false, false, {0.46, 0.73, 0.96}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.action << row.enabled << row.pressed);
        FlatButton *button =
            [[[FlatButton alloc] initWithFrame:NSMakeRect(0, 0, 80, 24)] autorelease];
        FlatButtonCell *cell = [button cell];
        EXPECT_FALSE([cell isActionButton]);
        if (row.action) {
            [cell makeActionButton];
        }
        [button setTitle:@""];
        [button setEnabled:row.enabled];
        [cell setHighlighted:row.pressed];
        draw(button);
        EXPECT_PRED2(near, at(6, 12), row.color);
        EXPECT_PRED2(near, at(70, 4), row.color);
        EXPECT_FALSE(near(at(0, 0), row.color));  // round corner
    }
}

}  // namespace
