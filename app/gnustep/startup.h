#ifndef QUORVANE_APP_GNUSTEP_STARTUP_H
#define QUORVANE_APP_GNUSTEP_STARTUP_H

// What must stand before the application object is made: a menu bar inside the window instead of a
// floating menu, no icon window, GNUstep's own title bar, and the bundle's fonts.
void prepareGNUstep();

#endif
