#include "desktop/system/notification.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

#include "desktop/system/names.h"

namespace desktop {
namespace {

QString server() {
    return QStringLiteral("org.freedesktop.Notifications");
}

QString server_path() {
    return QStringLiteral("/org/freedesktop/Notifications");
}

}  // namespace

Notification::Notification(QObject* parent) : QObject(parent) {
    QDBusConnection::sessionBus().connect(server(), server_path(), server(),
                                          QStringLiteral("ActionInvoked"), this,
                                          SLOT(on_action(uint, QString)));
}

void Notification::show(const QString& title, const QString& body, const QString& action) {
    const QVariantMap hints = {
        {QStringLiteral("desktop-entry"), QString::fromLatin1(kApplicationId)}};
    QDBusMessage call =
        QDBusMessage::createMethodCall(server(), server_path(), server(), QStringLiteral("Notify"));
    // Some servers read the body as markup.
    call << QStringLiteral("Quorvane") << shown_ << QString::fromLatin1(kApplicationId) << title
         << body.toHtmlEscaped() << QStringList{QStringLiteral("default"), action} << hints << -1;
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        const QDBusPendingReply<uint> reply = *watcher;
        // The server's number: the next one takes this one's place.
        shown_ = reply.isValid() ? reply.value() : 0;
        watcher->deleteLater();
    });
}

void Notification::on_action(uint id, const QString& /*action*/) {
    // The signal comes for every program's notifications.
    if (id == shown_ && shown_ != 0) {
        Q_EMIT clicked();
    }
}

}  // namespace desktop
