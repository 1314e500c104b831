#pragma once

#include <QPalette>
#include <QString>

namespace desktop {

/** False where the desktop has a style of its own for Qt programs, as Plasma has. */
bool takes_flat_style();

/**
 * A style sheet that gives buttons, scroll bars and progress bars the flat look of today's file
 * managers, in the palette's colors.
 */
QString flat_style(const QPalette& palette, const QColor& focus);

}  // namespace desktop
