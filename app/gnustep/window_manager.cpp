#include "app/gnustep/window_manager.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

bool windowManagerRuns() {
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        return false;
    }
    const Atom check = XInternAtom(display, "_NET_SUPPORTING_WM_CHECK", False);
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long left = 0;
    unsigned char* value = nullptr;
    XGetWindowProperty(display, DefaultRootWindow(display), check, 0, 1, False, XA_WINDOW, &type,
                       &format, &count, &left, &value);
    if (value) {
        XFree(value);
    }
    XCloseDisplay(display);
    return count > 0;
}
