#ifndef QUORVANE_APP_APPEARANCE_H
#define QUORVANE_APP_APPEARANCE_H

#import <AppKit/AppKit.h>

// The bundle's faces: "Exo2-Thin", "Exo2-Light", "Exo2-Regular", "Exo2-Bold". size is in points.
// The system's font stands in for a face that is missing.
NSFont *quorvaneFont(NSString *name, CGFloat size);

// Components 0 to 1, opaque, device colour space.
NSColor *rgbColor(CGFloat red, CGFloat green, CGFloat blue);
NSColor *grayColor(CGFloat white);

#endif
