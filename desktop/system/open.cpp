#include "desktop/system/open.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QStringList>
#include <filesystem>

#include "desktop/intake/paths.h"

namespace desktop {

bool open_file(const std::string& path) {
    // With whatever program the desktop has for it.
    return QDesktopServices::openUrl(to_url(path));
}

void show_in_folder(const std::vector<std::string>& paths) {
    if (paths.empty()) {
        return;
    }
    // A file manager that knows this interface selects the files; others get the folder opened.
    QStringList uris;
    for (const std::string& path : paths) {
        uris.append(QString::fromLatin1(to_url(path).toEncoded()));
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << uris << QString();
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call),
                                                QCoreApplication::instance());
    const std::string folder = std::filesystem::path(paths.front()).parent_path().string();
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [watcher, folder] {
        // Nobody answers to that name, or not in time.
        if (watcher->isError()) {
            open_file(folder);
        }
        watcher->deleteLater();
    });
}

}  // namespace desktop
