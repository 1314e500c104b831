#include <cmath>

#import "app/CircularProgress.h"
#import "app/DarkAudioDropZoneView.h"
#import "app/DarkView.h"
#import "app/FlatButton.h"
#import "app/QuorvaneController.h"
#import "tests/app/support.h"

namespace {

using Color = std::vector<double>;  // red, green, blue

constexpr double kTolerance = 1.01 / 255;  // the rounding of the drawing

bool near(const Color &a, const Color &b) {
    return std::equal(a.begin(), a.end(), b.begin(),
                      [](double x, double y) { return std::abs(x - y) < kTolerance; });
}

class Pixels : public AppTest {
   protected:
    // Draws the view by itself, on the dark ground, in a window that is not shown.
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
        NSColor *color = [[bitmap colorAtX:NSInteger(x) y:[bitmap pixelsHigh] - 1 - NSInteger(y)]
            colorUsingColorSpaceName:NSDeviceRGBColorSpace];
        return {[color redComponent], [color greenComponent], [color blueComponent]};
    }

    NSBitmapImageRep *bitmap = nil;
};

TEST_F(Pixels, DropZoneLightensUnderAUsableDrag) {
    DarkAudioDropZoneView *zone =
        [[[DarkAudioDropZoneView alloc] initWithFrame:NSMakeRect(0, 0, 200, 100)] autorelease];
    [zone awakeFromNib];
    for (const bool highlighted : {false, true}) {
        SCOPED_TRACE(highlighted);
        if (highlighted) {
            [zone draggingEntered:dragOf({write("x.wav")})];
        }
        draw(zone);
        const double fill = highlighted ? 0.15 : 0.1;
        EXPECT_PRED2(near, at(100, 50), (Color{fill, fill, fill}));
        // The line covers the outermost row of pixels, and only that; dashes of 5, gaps of 3.
        const double stroke = fill + (1 - fill) * (highlighted ? 0.4 : 0.75);
        int dashed = 0;
        for (int x = 20; x < 180; ++x) {
            dashed += std::abs(at(x, 99)[0] - stroke) < 0.03 ? 1 : 0;
            EXPECT_NEAR(at(x, 98)[0], fill, 0.01);
        }
        EXPECT_NEAR(dashed, 160 * 5 / 8, 20);
    }
}

TEST_F(Pixels, CircleShowsTruncatedPercentAndAnArcClockwiseFromTheTop) {
    CircularProgress *circle =
        [[[CircularProgress alloc] initWithFrame:NSMakeRect(0, 0, 200, 200)] autorelease];
    // On the middle of the line, 94 from the centre: at 1, 3, 6, 9 and 11 o'clock; then inside it.
    const double points[][2] = {{147, 181}, {194, 100}, {100, 5}, {5, 100}, {52, 181}, {186, 100}};
    const struct {
        float fraction;
        const char *percent, *seen;  // arc, track or ground
    } rows[] = {
        {0.004f, "00%", "tttttg"}, {0.3f, "30%", "aatttg"}, {0.5f, "50%", "aaattg"},
        {0.999f, "99%", "aaaaag"}, {1, "100%", "aaaaag"},   {0, "", "tttttg"},
        {-1, "", "tttttg"},
    };
    for (const auto &row : rows) {
        NSDictionary *item = @{QuorvaneOutputProgressKey : @(row.fraction)};
        [[NSNotificationCenter defaultCenter] postNotificationName:QuorvaneProgressNotification
                                                            object:item];
        spin(0.03);
        EXPECT_EQ(text([[circle textLayer] string]), row.percent);
        draw(circle);
        std::string seen;
        for (const auto &[x, y] : points) {
            seen += near(at(x, y), {0.7137, 0.9490, 0.3490}) ? 'a'
                    : near(at(x, y), {0, 0, 0})              ? 't'
                    : near(at(x, y), {0.1, 0.1, 0.1})        ? 'g'
                                                             : '?';
        }
        EXPECT_EQ(seen, row.seen) << row.fraction;
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
        if (row.action) {
            [static_cast<FlatButtonCell *>([button cell]) makeActionButton];
        }
        [button setTitle:@""];
        [button setEnabled:row.enabled];
        [[button cell] setHighlighted:row.pressed];
        draw(button);
        EXPECT_PRED2(near, at(6, 12), row.color);
        EXPECT_FALSE(near(at(0, 0), row.color));  // round corner
    }
}

}  // namespace
