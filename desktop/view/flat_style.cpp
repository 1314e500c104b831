#include "desktop/view/flat_style.h"

#include <utility>

#include "desktop/view/colors.h"

namespace desktop {
namespace {

// A word with @ stands for a color. A button's border is there without the focus as well, so that
// nothing moves when the focus comes. The two names with # are those that Qt gives the texts of a
// message box: the question in bold, and below it the explanation, on lines of a readable length.
constexpr const char* kSheet = R"(
QPushButton, QToolButton {
    color: @text; background: @button; padding: 5px 14px;
    border: 2px solid transparent; border-radius: 6px; outline: none;
}
QToolButton { background: transparent; padding: 4px 8px; }
QToolButton::menu-indicator { image: none; }
QPushButton:disabled { color: @faint; }
QPushButton:hover, QToolButton:hover { background: @hovered; }
QPushButton:pressed, QToolButton:pressed { background: @pressed; }
QPushButton:focus, QToolButton:focus { border-color: @focus; }

QDialog QPushButton { min-width: 72px; }
QDialog QPushButton:default { color: @on_accent; background: @accent; }
QDialog QPushButton:default:disabled { color: @faint; background: @button; }
QDialog QPushButton:default:focus { border-color: @text; }
QFileDialog QToolButton { padding: 1px; }
QMessageBox QLabel#qt_msgbox_label { font-weight: 600; }
QMessageBox QLabel#qt_msgbox_informativelabel { min-width: 320px; }

QMenu { color: @text; background: @base; border: 1px solid @line; padding: 4px; }
QMenu::item { padding: 5px 20px 5px 12px; border-radius: 4px; }
QMenu::item:selected { color: @on_accent; background: @accent; }
QMenu::item:disabled { color: @faint; background: transparent; }
QMenu::separator { height: 1px; background: @line; margin: 4px 8px; }

QScrollBar:vertical { background: @base; width: 12px; margin: 0; }
QScrollBar::handle:vertical { background: @thumb; border-radius: 4px; margin: 2px;
    min-height: 32px; }
QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; }
QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: transparent; }
QProgressBar { background: @line; border: none; border-radius: 3px; }
QProgressBar::chunk { background: @done; border-radius: 3px; }
)";

}  // namespace

QString flat_style(const QPalette& palette, const QColor& focus) {
    // Shades are shares of the text's color, which makes them right on light and on dark grounds.
    const QColor button = palette.color(QPalette::Button);
    const QColor text = palette.color(QPalette::ButtonText);
    const QColor base = palette.color(QPalette::Base);
    const std::pair<const char*, QColor> colors[] = {
        {"@text", text},
        {"@faint", mixed(button, text, 0.45)},
        {"@button", button},
        {"@hovered", mixed(button, text, 0.08)},
        {"@pressed", mixed(button, text, 0.16)},
        {"@focus", focus},
        {"@accent", palette.color(QPalette::Highlight)},
        {"@on_accent", palette.color(QPalette::HighlightedText)},
        {"@base", base},
        {"@line", mixed(base, text, 0.15)},
        {"@thumb", mixed(base, text, 0.35)},
        {"@done", done_color(palette)},
    };
    QString sheet = QString::fromLatin1(kSheet);
    for (const auto& [word, color] : colors) {
        // With what follows a color's word, as one word may begin another.
        sheet.replace(QLatin1String(word) + ';', color.name() + ';');
    }
    return sheet;
}

}  // namespace desktop
