#pragma once

#include <QObject>

namespace desktop {

/**
 * Progress on the program's entry in a dock or taskbar, over the launcher interface that Unity
 * brought and that Plasma, Dash to Dock, Plank and others read. Without a listener nothing
 * happens.
 */
class Taskbar : public QObject {
    Q_OBJECT

  public:
    using QObject::QObject;

    /** Tells each whole percent once. */
    void show(double fraction);
    /** No progress bar on the entry. */
    void hide();

  private:
    void send(int percent);

    static constexpr int kHidden = -1;
    int shown_ = kHidden;
};

}  // namespace desktop
