#include "desktop/view/ring.h"

#include <QApplication>
#include <QDrag>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include "desktop/model/words.h"
#include "desktop/view/colors.h"

namespace desktop {
namespace {

// In logical pixels.
constexpr double kLineWidth = 12;
constexpr double kTextShare = 0.2;  // of the ring's size
// What a layout gives it, and what it needs for a readable number.
constexpr int kUsualSide = 168;
constexpr int kLeastSide = 96;

/** The largest square in the bounds, so that the ring stays round. */
QRectF centered_square(const QRectF& bounds) {
    const double side = qMin(bounds.width(), bounds.height());
    QRectF square(0, 0, side, side);
    square.moveCenter(bounds.center());
    return square;
}

}  // namespace

void paint_ring(QPainter& painter,
                const QRectF& bounds,
                double line_width,
                double fraction,
                const QColor& track,
                const QColor& arc) {
    constexpr int kSixteenths = 16;  // Qt counts angles in sixteenths of a degree
    constexpr int kTop = 90 * kSixteenths;
    // A pen draws on both sides of its line: half of it would be cut off at the bounds.
    const double inset = line_width / 2;
    const QRectF circle = centered_square(bounds).adjusted(inset, inset, -inset, -inset);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(track, line_width));
    painter.drawEllipse(circle);
    if (fraction > 0) {
        painter.setPen(QPen(arc, line_width, Qt::SolidLine, Qt::FlatCap));
        // Clockwise from the top; positive angles go the other way. Flat ends: round ones would
        // show progress where there is none.
        painter.drawArc(circle, kTop, -qRound(360 * kSixteenths * qMin(fraction, 1.0)));
    }
    painter.restore();
}

void paint_mark(
    QPainter& painter, const QRectF& bounds, Mark mark, double line_width, const QColor& color) {
    const QRectF square = centered_square(bounds);
    // Marks are drawn in shares of the square, so they fit the row's small ring as well.
    const auto point = [&](double x, double y) {
        return square.topLeft() + QPointF(x * square.width(), y * square.height());
    };
    QPainterPath path;
    switch (mark) {
        case Mark::None:
            return;
        case Mark::Check:
            path.moveTo(point(0.30, 0.52));
            path.lineTo(point(0.45, 0.66));
            path.lineTo(point(0.71, 0.37));
            break;
        case Mark::Cross:
            path.moveTo(point(0.36, 0.36));
            path.lineTo(point(0.64, 0.64));
            path.moveTo(point(0.64, 0.36));
            path.lineTo(point(0.36, 0.64));
            break;
        case Mark::Bars: {
            // As in the program's icon.
            constexpr double kHalfHeights[] = {0.06, 0.13, 0.13, 0.13, 0.06};
            double x = 0.34;
            for (const double half : kHalfHeights) {
                path.moveTo(point(x, 0.5 - half));
                path.lineTo(point(x, 0.5 + half));
                x += 0.08;
            }
            break;
        }
    }
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(color, line_width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.drawPath(path);
    painter.restore();
}

Ring::Ring(QWidget* parent) : QProgressBar(parent) {
    setRange(0, 100);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setMaximumHeight(kUsualSide);
    setTextVisible(true);  // for screen readers, which read it as the value
}

void Ring::set_mark(Mark mark, const QColor& track) {
    if (mark != mark_ || track != track_) {
        mark_ = mark;
        track_ = track;
        update();
    }
}

QSize Ring::sizeHint() const {
    return {kUsualSide, kUsualSide};
}

QSize Ring::minimumSizeHint() const {
    return {kLeastSide, kLeastSide};
}

void Ring::paintEvent(QPaintEvent* /*event*/) {
    constexpr double kMarkWidth = 7;
    QPainter painter(this);
    const QRectF square = centered_square(rect());
    paint_ring(painter, square, kLineWidth, value() / 100.0, track_, kArc);
    if (mark_ != Mark::None) {
        paint_mark(painter, square, mark_, kMarkWidth, kDarkText);
        return;
    }
    // Sized by the ring and not by the desktop's font: it is a picture as much as a text.
    QFont font = this->font();
    font.setPixelSize(qRound(kTextShare * square.height()));
    font.setWeight(QFont::Light);
    painter.setFont(font);
    painter.setPen(kDarkText);
    painter.drawText(square, Qt::AlignCenter, percent_text(value()));
}

// The distance from here decides whether it becomes a drag.
void Ring::mousePressEvent(QMouseEvent* event) {
    pressed_at_ = event->position().toPoint();
}

/** The finished ring is the result: it can be dragged into an editor or a mail. */
void Ring::mouseMoveEvent(QMouseEvent* event) {
    const int distance = (event->position().toPoint() - pressed_at_).manhattanLength();
    // A hand that trembles during a click drags nothing.
    if (!(event->buttons() & Qt::LeftButton) || distance < QApplication::startDragDistance()) {
        return;
    }
    if (QMimeData* result = drag_source_ ? drag_source_() : nullptr) {
        auto* drag = new QDrag(this);
        drag->setMimeData(result);
        drag->exec(Qt::CopyAction);
    }
}

void Ring::mouseDoubleClickEvent(QMouseEvent* /*event*/) {
    Q_EMIT double_clicked();
}

}  // namespace desktop
