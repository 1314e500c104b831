#pragma once

#include <QFrame>
#include <QLabel>

namespace desktop {

/**
 * A line at the top of the window with a message that stays until it is closed or the next drop.
 * It is for what belongs to no row: files that are not audio, a program that was not found.
 */
class MessageBar : public QFrame {
    Q_OBJECT

  public:
    explicit MessageBar(QWidget* parent = nullptr);

    /** In place of what stood there. */
    void tell(const QString& text);

  private:
    QLabel* text_;
};

}  // namespace desktop
