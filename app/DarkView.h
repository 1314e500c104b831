#ifndef QUORVANE_APP_DARK_VIEW_H
#define QUORVANE_APP_DARK_VIEW_H

#import <AppKit/AppKit.h>

// A background in the window's dark gray.
@interface DarkView : NSView
@end

#endif
