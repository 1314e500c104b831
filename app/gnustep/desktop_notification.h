#ifndef QUORVANE_APP_GNUSTEP_DESKTOP_NOTIFICATION_H
#define QUORVANE_APP_GNUSTEP_DESKTOP_NOTIFICATION_H

// Notices of the Linux desktop. Both calls may wait for the desktop's answer: keep them off the
// main thread, and on one thread at a time. Without a session bus, or with nobody on it who shows
// notices, they do nothing and return false.

bool showDesktopNotification(const char* title, const char* body);

// Takes back every notice shown so far.
bool closeDesktopNotifications();

#endif
