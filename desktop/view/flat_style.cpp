#include "desktop/view/flat_style.h"

#include <QApplication>
#include <QStyle>

#include "desktop/view/colors.h"

namespace desktop {

bool takes_flat_style() {
    return QApplication::style()->name().compare(QLatin1String("fusion"), Qt::CaseInsensitive) == 0;
}

QString flat_style(const QPalette& palette, const QColor& focus) {
    // Shades are shares of the text's color, which makes them right on light and on dark grounds.
    const QColor button = palette.color(QPalette::Button);
    const QColor text = palette.color(QPalette::ButtonText);
    const QColor base = palette.color(QPalette::Base);
    return QStringLiteral(
               "QPushButton, QToolButton { color: %1; background: %2; border-radius: 6px;"
               "  border: 2px solid transparent; padding: 5px 14px; }"
               "QToolButton { background: transparent; padding: 4px 8px; }"
               "QToolButton::menu-indicator { image: none; }"
               "QPushButton:hover, QToolButton:hover { background: %3; }"
               "QPushButton:pressed, QToolButton:pressed { background: %4; }"
               "QPushButton:focus, QToolButton:focus { border-color: %5; }"
               "QScrollBar:vertical { background: %6; width: 12px; margin: 0; }"
               "QScrollBar::handle { background: %7; border-radius: 4px; margin: 2px;"
               "  min-height: 32px; }"
               "QScrollBar::add-line, QScrollBar::sub-line { height: 0; }"
               "QScrollBar::add-page, QScrollBar::sub-page { background: transparent; }"
               "QProgressBar { background: %8; border: none; border-radius: 3px; }"
               "QProgressBar::chunk { background: %9; border-radius: 3px; }")
        .arg(text.name(), button.name(), mixed(button, text, 0.08).name(),
             mixed(button, text, 0.16).name(), focus.name(), base.name(),
             mixed(base, text, 0.35).name(), mixed(base, text, 0.15).name(),
             palette.color(QPalette::Highlight).name());
}

}  // namespace desktop
