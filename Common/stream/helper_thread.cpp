#include "Common/stream/helper_thread.h"

#ifdef __linux__
#include <sched.h>
#endif
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <utility>

namespace stream {

namespace {

/** Of the process, which may be held to fewer processors than the machine has. */
bool has_second_processor() {
#ifdef __linux__
    // The C library's own count is sometimes that of the machine.
    cpu_set_t processors;
    CPU_ZERO(&processors);
    if (sched_getaffinity(0, sizeof processors, &processors) == 0) {
        return CPU_COUNT(&processors) > 1;
    }
#endif
    return std::thread::hardware_concurrency() > 1;
}

std::atomic<bool>& used() {
    static std::atomic<bool> value(has_second_processor());
    return value;
}

// What a thread decided for itself.
constexpr int kAsTheProcess = -1;
thread_local int used_here = kAsTheProcess;

}  // namespace

/**
 * Ends the helper with its owner's thread. In the child of a fork the helper has no thread that
 * could be waited for, and its mutex may be locked for good: it is left alone.
 */
struct HelperThread::Owner {
    HelperThread* helper = nullptr;

    Owner() {
        static const int registered =
            pthread_atfork(nullptr, nullptr, [] { current().helper = nullptr; });
        static_cast<void>(registered);
    }

    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;

    ~Owner() { delete helper; }

    static Owner& current() {
        thread_local Owner owner;
        return owner;
    }
};

HelperThread& HelperThread::of_this_thread() {
    Owner& owner = Owner::current();
    if (owner.helper == nullptr) {
        owner.helper = new HelperThread;
    }
    return *owner.helper;
}

HelperThread::~HelperThread() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ends_ = true;
        asleep_ = false;
        work_.notify_one();
    }
    if (thread_.joinable()) {
        thread_.join();
    }
}

void HelperThread::use(Help help) {
    used() = help == Help::kHelped;
}

bool HelperThread::is_used() {
    return used_here == kAsTheProcess ? used().load() : used_here != 0;
}

HelperThread::Use::Use(Help help) : before_(used_here) {
    used_here = help == Help::kHelped ? 1 : 0;
}

HelperThread::Use::~Use() {
    used_here = before_;
}

/** False without a thread to help: the owners then do their pieces themselves. */
bool HelperThread::start_thread() {
    if (!thread_.joinable() && is_used() && !failed_) {
        try {
            thread_ = std::thread(&HelperThread::work, this);
        } catch (const std::exception&) {  // no thread, or no memory for one
            failed_ = true;
        }
    }
    return thread_.joinable();
}

/** The one that is furthest behind, so that none of them falls back for good; null without any. */
HelperThread::Lane* HelperThread::fullest_lane() {
    Lane* fullest = nullptr;
    for (Lane* lane : lanes_) {
        if (lane->has_work() &&
            (fullest == nullptr || lane->due_ - lane->done_ > fullest->due_ - fullest->done_)) {
            fullest = lane;
        }
    }
    return fullest;
}

void HelperThread::work() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!ends_) {
        if (Lane* const lane = fullest_lane()) {
            lane->do_piece(lock);
        } else {
            asleep_ = true;
            work_.wait(lock, [this] { return !asleep_; });
        }
    }
}

HelperThread::Lane::Lane(std::function<void()> piece, int most_due)
    : piece_(std::move(piece)), enough_(std::max(1, most_due / 2)) {
    HelperThread& helper = of_this_thread();
    const std::lock_guard<std::mutex> lock(helper.mutex_);
    helper.lanes_.push_back(this);
}

HelperThread::Lane::~Lane() {
    drop();
    HelperThread& helper = of_this_thread();
    const std::lock_guard<std::mutex> lock(helper.mutex_);
    const auto found = std::find(helper.lanes_.begin(), helper.lanes_.end(), this);
    if (found != helper.lanes_.end()) {  // not so in the child of a fork in the middle of a run
        helper.lanes_.erase(found);
    }
}

void HelperThread::Lane::add() {
    HelperThread& helper = of_this_thread();
    const std::lock_guard<std::mutex> lock(helper.mutex_);
    ++due_;
    if (due_ - done_ >= enough_ && helper.start_thread() && helper.asleep_) {
        helper.asleep_ = false;
        helper.work_.notify_one();
    }
}

/** The lock is open while the piece is done. */
void HelperThread::Lane::do_piece(std::unique_lock<std::mutex>& lock) {
    running_ = true;
    lock.unlock();
    std::exception_ptr failure;
    try {
        piece_();
    } catch (...) {
        failure = std::current_exception();
    }
    lock.lock();
    running_ = false;
    failure_ = failure;
    done_ += failure ? 0 : 1;
    if (awaited_ > 0 && is_reached(awaited_)) {
        reached_.notify_one();
    }
}

void HelperThread::Lane::finish(long long count) {
    HelperThread& helper = of_this_thread();
    std::unique_lock<std::mutex> lock(helper.mutex_);
    while (!is_reached(count)) {
        if (!running_) {
            do_piece(lock);
        } else if (Lane* const other = helper.fullest_lane()) {
            other->do_piece(lock);
        } else {
            // The helper continues while this thread sleeps, which then finds more pieces done.
            awaited_ = std::max(count, std::min(done_ + enough_, due_));
            reached_.wait(lock, [this] { return is_reached(awaited_); });
            awaited_ = 0;
        }
    }
    if (done_ < count) {
        std::rethrow_exception(failure_);
    }
}

void HelperThread::Lane::drop() {
    std::unique_lock<std::mutex> lock(of_this_thread().mutex_);
    due_ = done_;
    awaited_ = done_ + 1;
    reached_.wait(lock, [this] { return !running_; });
    awaited_ = due_ = done_ = 0;
    failure_ = nullptr;
}

}  // namespace stream
