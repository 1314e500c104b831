#include "desktop/system/taskbar.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariantMap>

#include "desktop/system/names.h"

namespace desktop {

void Taskbar::show(double fraction) {
    const int percent = static_cast<int>(fraction * 100);
    // A hundred messages for a run are enough; the bus wakes every program that listens.
    if (percent != shown_) {
        send(percent);
    }
}

void Taskbar::hide() {
    if (shown_ != kHidden) {
        send(kHidden);
    }
}

// A signal without a receiver in particular: every dock that listens may show it.
void Taskbar::send(int percent) {
    shown_ = percent;
    // The interface of one launcher that the docks of other desktops have taken over.
    QDBusMessage update = QDBusMessage::createSignal(
        QStringLiteral("/org/quorvane/Quorvane"),
        QStringLiteral("com.canonical.Unity.LauncherEntry"), QStringLiteral("Update"));
    update << QStringLiteral("application://%1.desktop").arg(QLatin1String(kApplicationId))
           << QVariantMap{{QStringLiteral("progress"), qMax(percent, 0) / 100.0},
                          {QStringLiteral("progress-visible"), percent != kHidden}};
    QDBusConnection::sessionBus().send(update);
}

}  // namespace desktop
