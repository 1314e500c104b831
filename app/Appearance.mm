#import "app/Appearance.h"

NSFont *quorvaneFont(NSString *name, CGFloat size) {
    return [NSFont fontWithName:name size:size] ?: [NSFont systemFontOfSize:size];
}

NSColor *rgbColor(CGFloat red, CGFloat green, CGFloat blue) {
    return [NSColor colorWithDeviceRed:red green:green blue:blue alpha:1.0];
}

NSColor *grayColor(CGFloat white) {
    return rgbColor(white, white, white);
}
