#include "desktop/view/wrapped_label.h"

#include <QPainter>

#include "desktop/view/wrapped_text.h"

namespace desktop {

WrappedLabel::WrappedLabel(QWidget* parent) : QLabel(parent) {
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    setAlignment(Qt::AlignCenter);
    // The layout queries heightForWidth only of widgets whose policy says that they have it.
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

// For a layout that has not got its width yet; the true height follows from heightForWidth().
QSize WrappedLabel::sizeHint() const {
    constexpr int kUsualWidth = 420;
    return {kUsualWidth, heightForWidth(kUsualWidth)};
}

// QLabel wants room for its longest word: the window would become as wide as a long file name.
QSize WrappedLabel::minimumSizeHint() const {
    return {fontMetrics().averageCharWidth() * 8, fontMetrics().height()};
}

int WrappedLabel::heightForWidth(int width) const {
    return wrapped_height(font(), text(), width);
}

void WrappedLabel::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.setLayoutDirection(layoutDirection());
    const int height = heightForWidth(width());
    const QRect place(0, (this->height() - height) / 2, width(), height);
    draw_wrapped(painter, place, Qt::AlignHCenter, text());
}

}  // namespace desktop
