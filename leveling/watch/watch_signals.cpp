#include "leveling/watch/watch_signals.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace quorvane {
namespace {

// A signal handler has no other way to its objects.
std::atomic<Batch*> g_batch{nullptr};
std::atomic<int> g_wake{-1};
std::atomic<int> g_stops{0};
std::atomic<bool> g_hangup{false};

void wake_up() {
    const int error = errno;
    (void)!write(g_wake.load(), "", 1);
    errno = error;
}

void take_signal(int signal) {
    if (signal == SIGHUP) {
        g_hangup = true;
    } else {
        const bool first = g_stops.fetch_add(1) == 0;
        if (Batch* batch = g_batch.load()) {
            batch->stop(first ? Batch::Stop::CleanUp : Batch::Stop::Now);
        }
    }
    wake_up();
}

}  // namespace

WatchSignals::WatchSignals(Batch& batch) {
    if (pipe(pipe_) != 0) {
        throw std::system_error(errno, std::generic_category(), "a pipe");
    }
    for (const int end : pipe_) {
        fcntl(end, F_SETFD, FD_CLOEXEC);
        fcntl(end, F_SETFL, O_NONBLOCK);
    }
    g_batch = &batch;
    g_wake = pipe_[1];

    struct sigaction action {};

    action.sa_handler = take_signal;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(number, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
#ifdef SIGIO
    std::signal(SIGIO, SIG_IGN);
#endif
}

WatchSignals::~WatchSignals() {
    g_batch = nullptr;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(number, SIG_IGN);  // the process is ending
    }
    g_wake = -1;
    close(pipe_[0]);
    close(pipe_[1]);
}

void WatchSignals::drain() const {
    char bytes[64];
    while (read(pipe_[0], bytes, sizeof bytes) > 0) {
    }
}

int WatchSignals::stops() const {
    return g_stops;
}

bool WatchSignals::take_hangup() const {
    return g_hangup.exchange(false);
}

void WatchSignals::wake() const {
    wake_up();
}

}  // namespace quorvane
