#pragma once

#include <QObject>
#include <QString>

namespace desktop {

/** The desktop's notice that the work is over. A newer one takes the older one's place. */
class Notification : public QObject {
    Q_OBJECT

  public:
    explicit Notification(QObject* parent = nullptr);

    /** Shows title and body; action names what a click does. */
    void show(const QString& title, const QString& body, const QString& action);

  Q_SIGNALS:
    /** The user clicked the notification or its button. */
    void clicked();

  private Q_SLOTS:
    void on_action(uint id, const QString& action);

  private:
    uint shown_ = 0;  // the notification server's number; 0: none
};

}  // namespace desktop
