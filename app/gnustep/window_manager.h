#ifndef QUORVANE_APP_GNUSTEP_WINDOW_MANAGER_H
#define QUORVANE_APP_GNUSTEP_WINDOW_MANAGER_H

// Whether the display has a window manager that draws title bars (one of the freedesktop.org kind).
bool windowManagerRuns();

#endif
