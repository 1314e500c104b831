#pragma once

#include <QApplication>
#include <QEventLoop>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <functional>
#include <string>
#include <vector>

#include "desktop/intake/intake.h"
#include "desktop/session/session.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

/** Answers at once, and counts. */
struct FakeQuestions : desktop::Questions {
    desktop::ExistingChoice choice = desktop::ExistingChoice::Skip;
    std::string folder;
    int asked_existing = 0;
    int asked_folder = 0;

    void ask_existing(int /*count*/,
                      const QString& /*example*/,
                      std::function<void(desktop::ExistingChoice)> answer) override {
        ++asked_existing;
        answer(choice);
    }

    void ask_folder(const QString& /*locked*/, std::function<void(std::string)> answer) override {
        ++asked_folder;
        answer(folder);
    }
};

/** A recording of so many seconds in the folder; returns its path. */
inline std::string recording(const TempDir& folder, const std::string& name, double seconds = 3) {
    write_sound(folder / name, signals::speech(seconds, 16000), kWav16);
    return folder / name;
}

inline bool at_rest(const desktop::Session& session) {
    return !session.searching() && !session.working();
}

constexpr int kLongestMs = 30000;

/**
 * Waits for a state that may last a moment only. QTRY_VERIFY looks every 50 ms, in which a short
 * file begins and ends; this looks at every change that the session tells, before events go on, and
 * every millisecond for what it does not tell.
 */
inline bool reached(desktop::Session& session, const std::function<bool()>& state) {
    QEventLoop loop;
    const auto look = [&] {
        if (state()) {
            loop.quit();
        }
    };
    QTimer often;
    QObject::connect(&session, &desktop::Session::changed, &loop, look);
    QObject::connect(&session.files(), &desktop::FileList::dataChanged, &loop, look);
    QObject::connect(&session.files(), &desktop::FileList::rowsInserted, &loop, look);
    QObject::connect(&often, &QTimer::timeout, &loop, look);
    often.start(1);
    QTimer::singleShot(kLongestMs, &loop, &QEventLoop::quit);
    if (!state()) {
        loop.exec();
    }
    return state();
}
