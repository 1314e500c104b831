#include "desktop/view/row_delegate.h"

#include <QAbstractItemView>
#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyle>
#include <QToolTip>
#include <algorithm>

#include "desktop/intake/paths.h"
#include "desktop/model/file_list.h"
#include "desktop/model/words.h"
#include "desktop/view/colors.h"
#include "desktop/view/ring.h"
#include "desktop/view/wrapped_text.h"

namespace desktop {
namespace {

/*
 * A row of the list: the ring, then the name with the state below it, then the figures, then a
 * button that is only painted. Widgets in a thousand rows would make the window slow; painted rows
 * cost what is visible. All places are computed once for a text that reads from the left and
 * mirrored as a whole (visualRect), and the height follows from how the words wrap at the width
 * that the window has.
 */

// In logical pixels.
constexpr int kMargin = 12;
// In logical pixels.
constexpr int kLineGap = 3;
constexpr int kRingSize = 34;
constexpr double kRingWidth = 4;
constexpr int kButtonSize = 28;

// The model is this program's own, so the row is taken from it as it is and not role by role.
const Row& row_of(const QModelIndex& index) {
    return static_cast<const FileList*>(index.model())->at(index.row());
}

/** The name leads, so that a list is read along one edge. */
QFont name_font(const QFont& font) {
    QFont name = font;
    name.setWeight(QFont::DemiBold);
    return name;
}

/** A little smaller: the figures are looked up, not read. */
QFont figure_font(const QFont& font) {
    QFont figures = font;
    figures.setPointSizeF(font.pointSizeF() * 0.92);
    return figures;
}

/**
 * Where the parts of a row are, for a text that reads from the left; painting mirrors them for one
 * that reads from the right. Coordinates are logical pixels from the row's upper left corner.
 */
struct Layout {
    QRect ring;
    QRect name;
    QRect state;
    QRect loudness;
    QRect range;
    int height = 0;
};

/**
 * Wraps the name and the state to the width that is left between ring and figures: a row grows with
 * a long name or cause, and nothing is cut off.
 */
Layout lay_out(const Row& row, const QFont& font, int width) {
    const QFontMetrics figure_metrics(figure_font(font));
    // As wide as the figures of a usual file, so that the columns of all rows begin together.
    const int usual = figure_metrics.horizontalAdvance(QStringLiteral("−00.0 → −00.0 LUFS"));
    const int figures = std::max({usual, figure_metrics.horizontalAdvance(loudness_text(row)),
                                  figure_metrics.horizontalAdvance(range_text(row))});
    const int left = kMargin + kRingSize + kMargin;
    const int right = width - kMargin - kButtonSize - kMargin / 2;
    // Something of the name stays even in a window as narrow as it gets.
    const int text_width = qMax(80, right - figures - kMargin - left);
    // An empty state keeps its line, so that the row does not jump when it gets words.
    const int name = wrapped_height(name_font(font), shown_name(row.input), text_width);
    const int state = wrapped_height(font, state_text(row), text_width);
    Layout layout;
    layout.height = 2 * kMargin + qMax(name + kLineGap + state, kRingSize);
    layout.ring = QRect(kMargin, (layout.height - kRingSize) / 2, kRingSize, kRingSize);
    const int top = (layout.height - name - kLineGap - state) / 2;
    layout.name = QRect(left, top, text_width, name);
    layout.state = QRect(left, top + name + kLineGap, text_width, state);
    // The figures are level with the name's first line and with the line below it, and stay
    // together where the name takes more lines.
    const int line = QFontMetrics(name_font(font)).height();
    layout.loudness = QRect(right - figures, top, figures, line);
    layout.range = layout.loudness.translated(0, line + kLineGap);
    return layout;
}

void paint_ring_of(QPainter& painter, const Row& row, const QRect& place, const QPalette& palette) {
    const QColor ground = palette.color(QPalette::Base);
    const QColor track = mixed(ground, palette.color(QPalette::Text), 0.18);
    const QColor done = done_color(palette);
    if (row.state != State::Finished) {
        paint_ring(painter, place, kRingWidth, row.state == State::Running ? row.fraction : 0,
                   track, done);
        return;
    }
    // Cancelled is not a failure: a cross in a pale ring, without the alarming color.
    const bool cancelled = row.facts.outcome == quorvane::Outcome::Interrupted;
    const QColor color = row.failed() ? failure_color(palette)
                         : row.facts.outcome == quorvane::Outcome::Leveled
                             ? done
                             : soft_text_color(palette);
    paint_ring(painter, place, kRingWidth, 1, track, cancelled ? track : color);
    paint_mark(painter, place, row.failed() || cancelled ? Mark::Cross : Mark::Check, 2.5, color);
}

/**
 * The shade of a row that is selected or under the pointer, and the line below it. Colors are mixed
 * from the desktop's own, so that dark and high-contrast palettes stay readable.
 */
void paint_ground(QPainter& painter, const QStyleOptionViewItem& option) {
    const QColor ground = option.palette.color(QPalette::Base);
    const QColor text = option.palette.color(QPalette::Text);
    if (option.state & QStyle::State_Selected) {
        const QColor highlight = option.palette.color(QPalette::Highlight);
        painter.fillRect(option.rect, mixed(ground, highlight, 0.18));
    } else if (option.state & QStyle::State_MouseOver) {
        painter.fillRect(option.rect, mixed(ground, text, 0.04));
    }
    painter.setPen(mixed(ground, text, 0.12));
    painter.drawLine(option.rect.bottomLeft(), option.rect.bottomRight());
}

/** A cross that cancels, or a folder that shows the result. */
void paint_button(QPainter& painter, const Row& row, const QRect& place, const QPalette& palette) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(soft_text_color(palette), 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    const QRectF box = QRectF(place).adjusted(7, 8, -7, -8);
    if (row.state != State::Finished) {
        const QRectF cross = QRectF(place).adjusted(9, 9, -9, -9);
        painter.drawLine(cross.topLeft(), cross.bottomRight());
        painter.drawLine(cross.topRight(), cross.bottomLeft());
    } else if (row.has_result()) {
        QPainterPath folder(box.bottomLeft());
        folder.lineTo(box.topLeft());
        folder.lineTo(box.topLeft() + QPointF(4.5, 0));
        folder.lineTo(box.topLeft() + QPointF(6.5, 2.5));
        folder.lineTo(box.topRight() + QPointF(0, 2.5));
        folder.lineTo(box.bottomRight());
        folder.closeSubpath();
        painter.drawPath(folder);
    }
    painter.restore();
}

}  // namespace

// One place for painting, the mouse and the tool tip: they cannot disagree.
QRect RowDelegate::button_rect(const QRect& row, Qt::LayoutDirection direction) {
    const QRect place(row.right() - kMargin - kButtonSize + 1,
                      row.top() + (row.height() - kButtonSize) / 2, kButtonSize, kButtonSize);
    return QStyle::visualRect(direction, row, place);
}

void RowDelegate::paint(QPainter* painter,
                        const QStyleOptionViewItem& option,
                        const QModelIndex& index) const {
    const Row& row = row_of(index);
    const QPalette& palette = option.palette;
    const Layout layout = lay_out(row, option.font, option.rect.width());
    const auto place = [&](const QRect& part) {
        return QStyle::visualRect(option.direction, option.rect,
                                  part.translated(option.rect.topLeft()));
    };
    painter->save();
    painter->setLayoutDirection(option.direction);
    paint_ground(*painter, option);
    paint_ring_of(*painter, row, place(layout.ring), palette);
    painter->setPen(palette.color(QPalette::Text));
    painter->setFont(name_font(option.font));
    draw_wrapped(*painter, place(layout.name), Qt::AlignLeft, shown_name(row.input));
    painter->setFont(option.font);
    painter->setPen(row.failed() ? failure_color(palette) : soft_text_color(palette));
    draw_wrapped(*painter, place(layout.state), Qt::AlignLeft, state_text(row));
    painter->setFont(figure_font(option.font));
    painter->setPen(palette.color(QPalette::Text));
    painter->drawText(place(layout.loudness), Qt::AlignVCenter | Qt::AlignRight,
                      loudness_text(row));
    painter->setPen(soft_text_color(palette));
    painter->drawText(place(layout.range), Qt::AlignVCenter | Qt::AlignRight, range_text(row));
    paint_button(*painter, row, button_rect(option.rect, option.direction), palette);

    // A frame for who goes by keyboard; with the mouse the selection says enough.
    if (option.state & QStyle::State_HasFocus && option.state & QStyle::State_KeyboardFocusChange) {
        painter->setPen(QPen(palette.color(QPalette::Highlight), 2));
        painter->drawRect(option.rect.adjusted(1, 1, -2, -2));
    }
    painter->restore();
}

QSize RowDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    // The option's rectangle is empty while a list queries sizes.
    const auto* view = qobject_cast<const QAbstractItemView*>(option.widget);
    const int width = view ? view->viewport()->width() : option.rect.width();
    return {width, lay_out(row_of(index), option.font, width).height};
}

// The button has a tool tip of its own.
bool RowDelegate::helpEvent(QHelpEvent* event,
                            QAbstractItemView* view,
                            const QStyleOptionViewItem& option,
                            const QModelIndex& index) {
    if (event->type() == QEvent::ToolTip && index.isValid() &&
        button_rect(option.rect, option.direction).contains(event->pos())) {
        const Row& row = row_of(index);
        const QString text = row.state != State::Finished ? tr("Cancel")
                             : row.has_result()           ? tr("Show in Folder")
                                                          : QString();
        QToolTip::showText(event->globalPos(), text, view);
        return true;
    }
    return QStyledItemDelegate::helpEvent(event, view, option, index);
}

bool RowDelegate::editorEvent(QEvent* event,
                              QAbstractItemModel* model,
                              const QStyleOptionViewItem& option,
                              const QModelIndex& index) {
    // Painted buttons get no events of their own; the view passes the row's.
    if (event->type() == QEvent::MouseButtonRelease) {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        if (mouse->button() == Qt::LeftButton &&
            button_rect(option.rect, option.direction).contains(mouse->position().toPoint())) {
            Q_EMIT button_clicked(index);
            return true;
        }
    }
    return QStyledItemDelegate::editorEvent(event, model, option, index);
}

}  // namespace desktop
