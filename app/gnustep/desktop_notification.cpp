#include "app/gnustep/desktop_notification.h"

#include <libnotify/notify.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::vector<NotifyNotification*> shown;

// The bus library would otherwise try to start a bus of its own.
bool hasSessionBus() {
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address && *address) {
        return true;
    }
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    return runtime && access((std::string(runtime) + "/bus").c_str(), R_OK) == 0;
}

bool ready() {
    return hasSessionBus() && (notify_is_initted() || notify_init("Quorvane"));
}

}  // namespace

bool showDesktopNotification(const char* title, const char* body) {
    if (!ready()) {
        return false;
    }
    NotifyNotification* notice = notify_notification_new(title, body, "quorvane");
    if (!notify_notification_show(notice, nullptr)) {
        g_object_unref(notice);
        return false;
    }
    shown.push_back(notice);
    return true;
}

bool closeDesktopNotifications() {
    if (shown.empty() || !ready()) {
        return false;
    }
    for (NotifyNotification* notice : shown) {
        notify_notification_close(notice, nullptr);
        g_object_unref(notice);
    }
    shown.clear();
    return true;
}
