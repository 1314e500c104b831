#include "desktop/system/appearance.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QEventLoop>
#include <QStyle>
#include <QTimer>

/*
 * Light or dark, as the desktop has it. Qt 6.4 does not ask; the settings portal of the free
 * desktops answers on D-Bus, and tells when it changes. Where Qt has a platform theme of its own
 * (Plasma), its colors stand.
 */

namespace desktop {
namespace {

// Names of the portal, as its documentation has them.
constexpr uint kPrefersDark = 1;  // of org.freedesktop.appearance color-scheme

// The settings portal of the desktop, which sandboxed programs reach as well.
QString service() {
    return QStringLiteral("org.freedesktop.portal.Desktop");
}

QString path() {
    return QStringLiteral("/org/freedesktop/portal/desktop");
}

QString interface() {
    return QStringLiteral("org.freedesktop.portal.Settings");
}

QString group() {
    return QStringLiteral("org.freedesktop.appearance");
}

QString key() {
    return QStringLiteral("color-scheme");
}

/** Plasma and others give Qt programs their own style and colors. */
bool desktop_has_its_own_palette() {
    return !takes_flat_style() || qgetenv("XDG_CURRENT_DESKTOP").contains("KDE");
}

}  // namespace

bool takes_flat_style() {
    return QApplication::style()->name().compare(QLatin1String("fusion"), Qt::CaseInsensitive) == 0;
}

Appearance::Appearance(QObject* parent) : QObject(parent) {
    if (desktop_has_its_own_palette()) {
        return;
    }
    // Until the answer comes, and for good without an answer.
    QApplication::setPalette(palette(Scheme::Light));
    QDBusConnection::sessionBus().connect(service(), path(), interface(),
                                          QStringLiteral("SettingChanged"), this,
                                          SLOT(on_setting_changed(QString, QString, QDBusVariant)));
    ask();
}

void Appearance::ask() {
    QDBusMessage call =
        QDBusMessage::createMethodCall(service(), path(), interface(), QStringLiteral("Read"));
    call << group() << key();
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher] {
        const QDBusPendingReply<QDBusVariant> reply = *watcher;
        if (reply.isValid()) {
            apply(reply.value().variant());
        }
        watcher->deleteLater();
    });
    // A short while, so that the window does not open light and turn dark.
    constexpr int kLongestWaitMs = 200;
    QEventLoop wait;
    connect(watcher, &QDBusPendingCallWatcher::finished, &wait, &QEventLoop::quit);
    QTimer::singleShot(kLongestWaitMs, &wait, &QEventLoop::quit);
    wait.exec(QEventLoop::ExcludeUserInputEvents);
}

void Appearance::on_setting_changed(const QString& changed_group,
                                    const QString& changed_key,
                                    const QDBusVariant& value) {
    if (changed_group == group() && changed_key == key()) {
        apply(value.variant());
    }
}

void Appearance::apply(const QVariant& color_scheme) {
    QVariant value = color_scheme;
    while (value.canConvert<QDBusVariant>()) {  // Read wraps it twice
        value = value.value<QDBusVariant>().variant();
    }
    QApplication::setPalette(
        palette(value.toUInt() == kPrefersDark ? Scheme::Dark : Scheme::Light));
}

QPalette Appearance::palette(Scheme scheme) {
    const bool dark = scheme == Scheme::Dark;
    const QColor window = dark ? QColor(0x24, 0x24, 0x24) : QColor(0xfa, 0xfa, 0xfa);
    const QColor text = dark ? QColor(0xf2, 0xf2, 0xf2) : QColor(0x24, 0x24, 0x24);
    const QColor faint = dark ? QColor(0xa6, 0xa6, 0xa6) : QColor(0x66, 0x66, 0x66);
    QPalette colors(dark ? QColor(0x3a, 0x3a, 0x3a) : QColor(0xec, 0xec, 0xec), window);
    colors.setColor(QPalette::Window, window);
    colors.setColor(QPalette::Base, dark ? QColor(0x1e, 0x1e, 0x1e) : QColor(Qt::white));
    colors.setColor(QPalette::AlternateBase,
                    dark ? QColor(0x2a, 0x2a, 0x2a) : QColor(0xf4, 0xf4, 0xf4));
    for (const QPalette::ColorRole role :
         {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::ToolTipText}) {
        colors.setColor(role, text);
        colors.setColor(QPalette::Disabled, role, faint);
    }
    colors.setColor(QPalette::ToolTipBase, window);
    colors.setColor(QPalette::PlaceholderText, faint);
    colors.setColor(QPalette::Highlight, QColor(0x1c, 0x71, 0xd8));
    colors.setColor(QPalette::HighlightedText, Qt::white);
    colors.setColor(QPalette::Link, dark ? QColor(0x78, 0xae, 0xed) : QColor(0x1a, 0x5f, 0xb4));
    return colors;
}

}  // namespace desktop
