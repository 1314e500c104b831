#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

namespace stream {

/**
 * A second thread that reads ahead and writes behind, while the first one computes. It does one
 * task after the other, in the order they were given, so it never changes a bit. It starts with the
 * first task. Where no processor is free for it, a task is done at once by whoever gives it.
 */
class HelperThread {
  public:
    /** One for the process. */
    static HelperThread& instance();

    /** With false, the threads that call do everything themselves. Default: with more than one
     * processor, true. */
    static void use(bool use);

    ~HelperThread();
    HelperThread(const HelperThread&) = delete;
    HelperThread& operator=(const HelperThread&) = delete;

    /** A task that has been given away: it must be waited for before what it uses goes. */
    class Task {
      public:
        Task() = default;
        ~Task();
        Task(const Task&) = delete;
        Task& operator=(const Task&) = delete;

        /** Gives a task away; an earlier one of this object must have been waited for. */
        void start(std::function<void()> work);

        /** Returns when the task, if any, is done, and throws what it threw. */
        void wait();

      private:
        friend class HelperThread;

        void run();

        std::function<void()> work_;
        std::exception_ptr failure_;
        bool pending_ = false;
    };

  private:
    HelperThread() = default;

    bool give(Task& task);
    void work_off();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Task*> tasks_;
    std::thread thread_;
    bool end_ = false;
};

}  // namespace stream
