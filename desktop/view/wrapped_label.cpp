#include "desktop/view/wrapped_label.h"

#include <QPainter>

namespace desktop {
namespace {

constexpr int kFlags = Qt::AlignCenter | Qt::TextWordWrap | Qt::TextWrapAnywhere;

}  // namespace

WrappedLabel::WrappedLabel(QWidget* parent) : QLabel(parent) {
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    setAlignment(Qt::AlignCenter);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

QSize WrappedLabel::sizeHint() const {
    constexpr int kUsualWidth = 420;
    return {kUsualWidth, heightForWidth(kUsualWidth)};
}

QSize WrappedLabel::minimumSizeHint() const {
    return {fontMetrics().averageCharWidth() * 8, fontMetrics().height()};
}

int WrappedLabel::heightForWidth(int width) const {
    constexpr int kNoLimit = 100000;
    // QLabel breaks lines between words only and would make the window as wide as a long file name.
    const QRect needed = fontMetrics().boundingRect(0, 0, width, kNoLimit, kFlags, text());
    return qMax(needed.height(), fontMetrics().height());
}

void WrappedLabel::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(rect(), kFlags, text());
}

}  // namespace desktop
