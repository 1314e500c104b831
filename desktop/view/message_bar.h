#pragma once

#include <QFrame>
#include <QLabel>

namespace desktop {

/** A line at the top of the window that tells something until it is closed. */
class MessageBar : public QFrame {
    Q_OBJECT

  public:
    explicit MessageBar(QWidget* parent = nullptr);
    void tell(const QString& text);

  private:
    QLabel* text_;
};

}  // namespace desktop
