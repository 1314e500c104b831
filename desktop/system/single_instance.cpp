#include "desktop/system/single_instance.h"

#include <unistd.h>

#include <QDataStream>
#include <QDir>
#include <QElapsedTimer>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QThread>

/*
 * One window for a user: a second start gives its files to the first one and ends. Who is first is
 * settled by a lock file, which a killed process cannot leave locked; the files go through a socket
 * beside it that only this user can open. With them goes the token by which a desktop lets the
 * first window come to the front, as only the one that was started has it.
 */

namespace desktop {
namespace {

// A window whose processors all level may take its time; one that hangs never answers.
constexpr int kLongestWaitMs = 15000;
// The first start may hold the lock and not listen yet.
constexpr int kRetryMs = 50;
constexpr quint32 kMostBytes = 64 << 20;  // of a message: a million paths, and no more

/** Where lock and socket are, without their endings. */
QString runtime_place() {
    QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (folder.isEmpty()) {
        folder = QDir::tempPath();
    }
    return QStringLiteral("%1/quorvane-desktop-%2").arg(folder).arg(getuid());
}

/** X11 has the same under another name. */
QByteArray activation_token() {
    const QByteArray wayland = qgetenv("XDG_ACTIVATION_TOKEN");
    return wayland.isEmpty() ? qgetenv("DESKTOP_STARTUP_ID") : wayland;
}

}  // namespace

SingleInstance::SingleInstance(QObject* parent)
    : QObject(parent), place_(runtime_place()), lock_(place_ + QStringLiteral(".lock")) {
    lock_.setStaleLockTime(0);  // by process only: a window may stay open for weeks
    first_ = lock_.tryLock(0);
    if (first_) {
        const QString socket = place_ + QStringLiteral(".socket");
        QLocalServer::removeServer(socket);  // of one that was killed
        server_.setSocketOptions(QLocalServer::UserAccessOption);
        server_.listen(socket);
        connect(&server_, &QLocalServer::newConnection, this, &SingleInstance::on_connection);
    } else if (lock_.error() != QLockFile::LockFailedError) {
        first_ = true;  // no folder to agree in: better two windows than none
    }
}

bool SingleInstance::hand_over(const std::vector<std::string>& paths) const {
    QByteArray message;
    QDataStream stream(&message, QIODevice::WriteOnly);
    QList<QByteArray> bytes;
    for (const std::string& path : paths) {
        bytes.append(QByteArray::fromStdString(path));
    }
    stream << activation_token() << bytes;

    // The first start may have its lock and not yet its socket.
    QElapsedTimer clock;
    clock.start();
    QLocalSocket socket;
    do {
        socket.connectToServer(place_ + QStringLiteral(".socket"));
        if (socket.waitForConnected(kLongestWaitMs)) {
            socket.write(message);
            while (socket.bytesToWrite() > 0 && socket.waitForBytesWritten(kLongestWaitMs)) {
            }
            // The answer is a single byte: the files are taken.
            return socket.waitForReadyRead(kLongestWaitMs);
        }
        QThread::msleep(kRetryMs);
    } while (clock.elapsed() < kLongestWaitMs);
    return false;
}

void SingleInstance::on_connection() {
    while (QLocalSocket* socket = server_.nextPendingConnection()) {
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { read_from(socket); });
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        read_from(socket);
    }
}

// Called with each part of a message: nothing is read until all of it is there.
void SingleInstance::read_from(QLocalSocket* socket) {
    if (socket->bytesAvailable() > kMostBytes) {
        socket->abort();
        return;
    }
    QDataStream stream(socket);
    QByteArray token;
    QList<QByteArray> bytes;
    stream.startTransaction();
    stream >> token >> bytes;
    if (!stream.commitTransaction()) {
        return;  // the rest is on its way
    }
    std::vector<std::string> paths;
    for (const QByteArray& path : bytes) {
        paths.push_back(path.toStdString());
    }
    socket->write("1");
    socket->flush();
    socket->disconnectFromServer();
    Q_EMIT received(paths, token);
}

}  // namespace desktop
