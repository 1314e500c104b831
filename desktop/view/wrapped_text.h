#pragma once

#include <QFont>
#include <QString>

class QPainter;
class QRect;

namespace desktop {

// Plain text that breaks between words where it can, and inside one where it must: a file name may
// be a single word that is longer than the window is wide. QPainter::drawText can do either, but
// not the one after the other.

/** Height of the text in lines of that width, in logical pixels; at least one line. */
int wrapped_height(const QFont& font, const QString& text, int width);

/** Draws it from the top of the place, with the painter's font, pen and layout direction. */
void draw_wrapped(QPainter& painter,
                  const QRect& place,
                  Qt::Alignment alignment,
                  const QString& text);

}  // namespace desktop
