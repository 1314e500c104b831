#import <AppKit/AppKit.h>

#ifdef GNUSTEP  // GNUstep reads its look and the bundle's fonts before it makes the application
#include "app/gnustep/startup.h"
#endif

int main(int argc, char *argv[]) {
    @autoreleasepool {
#ifdef GNUSTEP
        prepareGNUstep();
#endif
    }
    return NSApplicationMain(argc, const_cast<const char **>(argv));
}
