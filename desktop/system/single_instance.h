#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <string>
#include <vector>

namespace desktop {

/**
 * One window for each user: the first start listens on a local socket that only its user may open,
 * a later one hands its files over and ends.
 */
class SingleInstance : public QObject {
    Q_OBJECT

  public:
    explicit SingleInstance(QObject* parent = nullptr);

    /** True in the first start, which listens from now on. */
    bool is_first() const { return first_; }

    /** Gives the files to the first start. False when it does not take them. */
    bool hand_over(const std::vector<std::string>& paths) const;

  Q_SIGNALS:
    /** Another start's files, and its right to come to the front (empty: none). */
    void received(const std::vector<std::string>& paths, const QByteArray& activation_token);

  private:
    void on_connection();
    void read_from(QLocalSocket* socket);

    const QString place_;  // path without ending of lock and socket
    QLockFile lock_;
    QLocalServer server_;
    bool first_ = false;
};

}  // namespace desktop
