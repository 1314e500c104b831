#include "Common/stream/helper_thread.h"

#include <atomic>
#include <system_error>
#include <utility>

namespace stream {

namespace {

std::atomic<bool>& used() {
    // On Linux this counts the processors that the process may run on.
    static std::atomic<bool> value(std::thread::hardware_concurrency() > 1);
    return value;
}

}  // namespace

HelperThread& HelperThread::instance() {
    static HelperThread helper;
    return helper;
}

void HelperThread::use(bool use) {
    used() = use;
}

HelperThread::~HelperThread() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        end_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

/** False when nobody is there to take it. */
bool HelperThread::give(Task& task) {
    if (!used()) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!thread_.joinable()) {
        try {
            thread_ = std::thread(&HelperThread::work_off, this);
        } catch (const std::system_error&) {
            return false;
        }
    }
    task.pending_ = true;
    tasks_.push_back(&task);
    changed_.notify_all();
    return true;
}

void HelperThread::work_off() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return end_ || !tasks_.empty(); });
        if (tasks_.empty()) {
            return;
        }
        Task& task = *tasks_.front();
        tasks_.pop_front();
        lock.unlock();
        task.run();
        lock.lock();
        task.pending_ = false;
        changed_.notify_all();
    }
}

HelperThread::Task::~Task() {
    try {
        wait();
    } catch (...) {  // whoever leaves without waiting has a failure of its own to tell
    }
}

void HelperThread::Task::start(std::function<void()> work) {
    work_ = std::move(work);
    failure_ = nullptr;
    if (!instance().give(*this)) {
        run();
    }
}

void HelperThread::Task::run() {
    try {
        work_();
    } catch (...) {
        failure_ = std::current_exception();
    }
}

void HelperThread::Task::wait() {
    {
        HelperThread& helper = instance();
        std::unique_lock<std::mutex> lock(helper.mutex_);
        helper.changed_.wait(lock, [this] { return !pending_; });
    }
    if (failure_) {
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
}

}  // namespace stream
