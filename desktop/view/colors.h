#pragma once

#include <QColor>
#include <QPalette>

namespace desktop {

// Of the dark drop view, whatever the desktop's colors. The fill, the track and the arc are those
// of the AppKit application, so that both windows show one program. On the track stands no text:
// black on dark grey is only the groove that the arc fills.
inline const QColor kDarkFill(0x1a, 0x1a, 0x1a);
inline const QColor kDarkFillUnderDrag(0x26, 0x26, 0x26);
inline const QColor kDarkButton(0x4a, 0x4a, 0x4a);
inline const QColor kDarkTrack(0x00, 0x00, 0x00);
inline const QColor kDarkText(0xff, 0xff, 0xff);
inline const QColor kDarkSoftText(0xb8, 0xb8, 0xb8);
inline const QColor kArc(0xb6, 0xf2, 0x59);

/** Judged by the ground that texts stand on, as palettes carry no word for it. */
inline bool is_dark(const QPalette& palette) {
    return palette.color(QPalette::Base).lightness() < 128;
}

/**
 * Part of one color in the other, 0 to 1, channel by channel in sRGB as it is stored: for shades of
 * grey and tints that is close enough to what the eye sees as even.
 */
inline QColor mixed(const QColor& color, const QColor& other, double part) {
    const auto mix = [part](int a, int b) { return static_cast<int>(a + (b - a) * part); };
    return {mix(color.red(), other.red()), mix(color.green(), other.green()),
            mix(color.blue(), other.blue())};
}

// Each of them stands out against the list's ground by 4.5 : 1 or more.
inline QColor done_color(const QPalette& palette) {
    return is_dark(palette) ? kArc : QColor(0x3d, 0x70, 0x0a);
}

/** A pale red on dark grounds: a full one would glow and still be hard to read. */
inline QColor failure_color(const QPalette& palette) {
    return is_dark(palette) ? QColor(0xff, 0x93, 0x82) : QColor(0xb3, 0x16, 0x22);
}

/** For what stands beside the name: present, but second. */
inline QColor soft_text_color(const QPalette& palette) {
    return mixed(palette.color(QPalette::Text), palette.color(QPalette::Base), 0.3);
}

}  // namespace desktop
