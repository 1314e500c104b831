#include "desktop/system/end_signals.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <cerrno>
#include <csignal>

namespace desktop {
namespace {

// A handler has no other way to its object.
int g_pipe[2] = {-1, -1};

/** In a signal handler Qt may not be called: a byte in a pipe wakes its event loop. */
void note(int /*signal*/) {
    const int error = errno;
    (void)!write(g_pipe[1], "", 1);
    errno = error;
}

}  // namespace

EndSignals::EndSignals(QObject* parent) : QObject(parent) {
    if (pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    auto* notifier = new QSocketNotifier(g_pipe[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        while (read(g_pipe[0], &byte, 1) == 1) {
        }
        Q_EMIT arrived();
    });
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(number, note);
    }
}

}  // namespace desktop
