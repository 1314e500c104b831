#pragma once

#include <QObject>

namespace desktop {

/** Turns SIGINT, SIGTERM and SIGHUP into a signal on the main thread. One in a process. */
class EndSignals : public QObject {
    Q_OBJECT

  public:
    explicit EndSignals(QObject* parent = nullptr);

  Q_SIGNALS:
    /** A signal came; emitted on the main thread, not in the signal handler. */
    void arrived();
};

}  // namespace desktop
