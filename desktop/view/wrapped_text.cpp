#include "desktop/view/wrapped_text.h"

#include <QFontMetrics>
#include <QPainter>
#include <QTextLayout>

namespace desktop {
namespace {

/** Sets the text in lines below each other; returns the height of all of them. */
double set_lines(QTextLayout& layout,
                 double width,
                 Qt::Alignment alignment,
                 Qt::LayoutDirection direction) {
    // A line may be a little higher than the font says, where another font lends its letters.
    QTextOption option(alignment);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    option.setTextDirection(direction);
    layout.setTextOption(option);
    double height = 0;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        line.setPosition({0, height});
        height += line.height();
    }
    layout.endLayout();
    return height;
}

/** The layout ends a line at this character only; a text has the one of the keyboard. */
QString with_separators(QString text) {
    return text.replace('\n', QChar::LineSeparator);
}

}  // namespace

// The same breaks as draw_wrapped() takes.
int wrapped_height(const QFont& font, const QString& text, int width) {
    QTextLayout layout(with_separators(text), font);
    const double height = set_lines(layout, width, Qt::AlignLeft, Qt::LeftToRight);
    return qMax(qCeil(height), QFontMetrics(font).height());
}

void draw_wrapped(QPainter& painter,
                  const QRect& place,
                  Qt::Alignment alignment,
                  const QString& text) {
    QTextLayout layout(with_separators(text), painter.font());
    set_lines(layout, place.width(), alignment, painter.layoutDirection());
    // Nothing is clipped: who asked for the height first has room for every line.
    layout.draw(&painter, place.topLeft());
}

}  // namespace desktop
