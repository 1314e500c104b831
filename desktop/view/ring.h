#pragma once

#include <QColor>
#include <QPoint>
#include <QProgressBar>
#include <QRectF>
#include <functional>

#include "desktop/view/colors.h"

class QMimeData;
class QPainter;

namespace desktop {

/**
 * A track and on it an arc that starts at the top and runs clockwise, in the largest circle that
 * the bounds hold. The fraction goes from 0 to 1; widths are logical pixels.
 */
void paint_ring(QPainter& painter,
                const QRectF& bounds,
                double line_width,
                double fraction,
                const QColor& track,
                const QColor& arc);

/** What stands in a ring: a result, a failure or a stop, and the program's own sign. */
enum class Mark { None, Check, Cross, Bars };

/** The mark in the middle of the bounds. */
void paint_mark(
    QPainter& painter, const QRectF& bounds, Mark mark, double line_width, const QColor& color);

/**
 * The drop view's large ring with the per cent in it. To a screen reader it is a progress bar. A
 * result can be dragged out of it.
 */
class Ring : public QProgressBar {
    Q_OBJECT

  public:
    explicit Ring(QWidget* parent = nullptr);

    /** Instead of the per cent, in a ring of that color; None shows the per cent. */
    void set_mark(Mark mark, const QColor& track = kDarkTrack);

    /** Makes what a drag carries, or nullptr for no drag. */
    void set_drag_source(std::function<QMimeData*()> source) { drag_source_ = std::move(source); }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

  Q_SIGNALS:
    /** Plays the result. */
    void double_clicked();

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

  private:
    Mark mark_ = Mark::Bars;
    QColor track_ = kDarkTrack;  // under the arc
    QPoint pressed_at_;          // where a drag would have begun
    std::function<QMimeData*()> drag_source_;
};

}  // namespace desktop
