#pragma once

#include <QDBusVariant>
#include <QObject>
#include <QPalette>

namespace desktop {

/** False where the desktop has a style of its own for Qt programs, as Plasma has. */
bool takes_flat_style();

/**
 * Follows the desktop's wish for dark or light, also while the window is open: the settings portal
 * tells it. Where the desktop has a palette of its own for Qt, that palette stays.
 */
class Appearance : public QObject {
    Q_OBJECT

  public:
    explicit Appearance(QObject* parent = nullptr);

    /** As the desktop's settings portal has it; anything else counts as Light. */
    enum class Scheme { Light, Dark };

    static QPalette palette(Scheme scheme);

  private Q_SLOTS:
    void on_setting_changed(const QString& group, const QString& key, const QDBusVariant& value);

  private:
    /** Asks the portal without waiting for its answer. */
    void ask();
    static void apply(const QVariant& color_scheme);
};

}  // namespace desktop
