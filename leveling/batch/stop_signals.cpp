#include "leveling/batch/stop_signals.h"

#include <atomic>
#include <csignal>

namespace quorvane {
namespace {

// A signal handler has no other way to its objects.
std::atomic<Batch*> g_batch{nullptr};
// What the handlers, which can call next to nothing, leave for the batch's thread.
std::atomic<int> g_signal{0};
std::atomic<bool> g_resized{false};

void take_signal(int signal) {
    if (signal == SIGWINCH) {
        g_resized = true;
        return;
    }
    int none = 0;
    // The first asks the workers to clean up, the second does not wait for them.
    const bool first = g_signal.compare_exchange_strong(none, signal);
    if (Batch* batch = g_batch.load()) {
        batch->stop(first ? Batch::Stop::CleanUp : Batch::Stop::Now);
    }
}

}  // namespace

StopSignals::StopSignals(Batch& batch) {
    g_signal = 0;
    g_batch = &batch;

    struct sigaction action {};

    action.sa_handler = take_signal;
    action.sa_flags = SA_RESTART;
    for (int number : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) {
        struct sigaction old {};

        sigaction(number, nullptr, &old);
        // nohup ignores SIGHUP, and means it.
        if (old.sa_handler != SIG_IGN) {
            sigaction(number, &action, nullptr);
        }
    }
    // A reader that went away shows as a failed write, which is told or passed over there.
    std::signal(SIGPIPE, SIG_IGN);
}

StopSignals::~StopSignals() {
    g_batch = nullptr;
}

int StopSignals::signal() const {
    return g_signal;
}

bool StopSignals::take_resize() const {
    return g_resized.exchange(false);
}

}  // namespace quorvane
