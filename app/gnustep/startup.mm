#include "app/gnustep/startup.h"

#import <AppKit/AppKit.h>
#include <fontconfig/fontconfig.h>

#include "app/gnustep/window_manager.h"

void prepareGNUstep() {
    [[NSUserDefaults standardUserDefaults] registerDefaults:@{
        @"NSMenuInterfaceStyle" : @"NSWindows95InterfaceStyle",
        @"GSSuppressAppIcon" : @"YES",
        @"GSX11HandlesWindowDecorations" : windowManagerRuns() ? @"YES" : @"NO",
    }];
    NSString *fonts =
        [[[NSBundle mainBundle] resourcePath] stringByAppendingPathComponent:@"Fonts"];
    FcConfigAppFontAddDir(nullptr, reinterpret_cast<const FcChar8 *>([fonts UTF8String]));
}
