// A window that starts a drag of the file that DRAGGED_FILE names: GNUstep would try to open one
// named on the command line.

#import <AppKit/AppKit.h>

#include <cstdlib>

#include "app/gnustep/startup.h"

static NSArray *files;

@interface DragSource : NSView
@end

@implementation DragSource

- (BOOL)acceptsFirstMouse:(NSEvent *)event {
    return YES;
}

- (void)mouseDown:(NSEvent *)event {
    NSPasteboard *pasteboard = [NSPasteboard pasteboardWithName:NSDragPboard];
    [pasteboard declareTypes:@[ NSFilenamesPboardType ] owner:nil];
    [pasteboard setPropertyList:files forType:NSFilenamesPboardType];
    NSImage *image = [[[NSImage alloc] initWithSize:NSMakeSize(16, 16)] autorelease];
    [self dragImage:image
                 at:[self convertPoint:[event locationInWindow] fromView:nil]
             offset:NSZeroSize
              event:event
         pasteboard:pasteboard
             source:self
          slideBack:NO];
}

- (NSDragOperation)draggingSourceOperationMaskForLocal:(BOOL)isLocal {
    return NSDragOperationCopy;
}

@end

int main() {
    @autoreleasepool {
        prepareGNUstep();
        files = [@[ [NSString stringWithUTF8String:std::getenv("DRAGGED_FILE")] ] retain];
        [NSApplication sharedApplication];
        NSWindow *window = [[NSWindow alloc] initWithContentRect:NSMakeRect(900, 400, 200, 100)
                                                       styleMask:NSTitledWindowMask
                                                         backing:NSBackingStoreBuffered
                                                           defer:NO];
        [window setTitle:@"Drag Source"];
        [window setContentView:[[[DragSource alloc] init] autorelease]];
        [window makeKeyAndOrderFront:nil];
        [NSApp run];
    }
    return 0;
}
