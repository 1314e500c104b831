#pragma once

#include <QFrame>
#include <QLabel>

namespace desktop {

/**
 * A line at the top of the window that tells something until it is closed or the next drop comes.
 * It is for what concerns no row: files that are no audio, a program that was not found.
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
