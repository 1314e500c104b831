#ifndef QUORVANE_APP_GNUSTEP_STARTUP_H
#define QUORVANE_APP_GNUSTEP_STARTUP_H

// What must stand before the application object is made: a menu bar inside the window instead of a
// floating menu, no icon window, a title bar of GNUstep's own where no window manager draws one,
// and the bundle's fonts.
void prepareGNUstep();

#endif
