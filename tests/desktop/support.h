#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QApplication>
#include <QEventLoop>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
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

constexpr int kLongestMs = 60000;

/** Names the file whose lock a worker of the tests waits for before it begins. */
constexpr const char* kHoldVariable = "QUORVANE_HOLD_WORKERS";

/**
 * Keeps every worker from beginning until release(): work that lasts as long as the test looks at
 * it, however fast the machine is and however slow the test. A signal ends a held worker.
 */
class HeldWorkers {
  public:
    HeldWorkers() {
        const std::string path = folder_ / "lock";
        lock_ = open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
        flock(lock_, LOCK_EX);
        qputenv(kHoldVariable, QByteArray::fromStdString(path));
    }

    ~HeldWorkers() {
        release();
        qunsetenv(kHoldVariable);
    }

    HeldWorkers(const HeldWorkers&) = delete;
    HeldWorkers& operator=(const HeldWorkers&) = delete;

    void release() {
        if (lock_ >= 0) {
            close(std::exchange(lock_, -1));
        }
    }

    /** In a worker: waits while the test holds it. */
    static void wait() {
        if (const char* path = std::getenv(kHoldVariable)) {
            const int lock = open(path, O_RDONLY | O_CLOEXEC);
            flock(lock, LOCK_SH);
            close(lock);
        }
    }

  private:
    TempDir folder_;
    int lock_ = -1;
};

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
