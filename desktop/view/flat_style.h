#pragma once

#include <QPalette>
#include <QString>

namespace desktop {

/**
 * A style sheet that gives buttons, scroll bars and progress bars the flat look of today's file
 * managers, in the palette's colors.
 */
QString flat_style(const QPalette& palette, const QColor& focus);

}  // namespace desktop
