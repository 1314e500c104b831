#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace stream {

// Bytes of a piece that is read ahead or written behind, and pieces of such a lane: few calls, and
// both directions together stay in a processor's second cache.
constexpr long long kPieceBytes = 1LL << 17;
constexpr int kPieces = 8;

/*
 * A second thread that reads ahead and writes behind while the first one computes, where a
 * processor is free for it.
 *
 * To wake a sleeping thread costs more than most pieces of this work, so a thread does a piece
 * itself instead of waiting for it. Pieces queue in lanes. A lane's pieces run in order, one at a
 * time, so the result does not depend on the thread: the helper, or the owner when it needs a piece
 * that has not started. The helper sleeps when the lanes are empty and is woken when enough pieces
 * are queued. An owner sleeps only while the helper runs the very piece that it waits for and no
 * other lane has a piece.
 */
class HelperThread {
  public:
    /**
     * The helper of this thread, which ends with it: only the run's thread and its own helper do
     * the pieces of a run, never another run's. The child of a fork gets a helper of its own.
     */
    static HelperThread& of_this_thread();

    enum class Help { kAlone, kHelped };

    /**
     * With kAlone, threads start no helper and do all pieces themselves. Applies to all threads
     * without a Use. Default: kHelped with more than one processor.
     */
    static void use(Help help);

    /** Whether this thread may use a helper. */
    static bool is_used();

    /** Overrides use() for this thread during its lifetime. */
    class Use {
      public:
        explicit Use(Help help);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

      private:
        int before_;
    };

    HelperThread(const HelperThread&) = delete;
    HelperThread& operator=(const HelperThread&) = delete;

    /** A queue of pieces that run one after the other. Only the owner may call it. */
    class Lane {
      public:
        /** piece does the next piece, on either thread. most_due: queued pieces at a time. */
        Lane(std::function<void()> piece, int most_due);

        /** Drops the queued pieces. */
        ~Lane();
        Lane(const Lane&) = delete;
        Lane& operator=(const Lane&) = delete;

        /** Queues one more piece; the owner must not touch its data until it is finished. */
        void add();

        /**
         * Returns when the first count pieces are done; they must have been added. Rethrows what
         * one of them threw. No piece runs after one that threw.
         */
        void finish(long long count);

        /** Drops the pieces that have not started and restarts the count at 0. */
        void drop();

      private:
        friend class HelperThread;

        bool has_work() const { return !running_ && !failure_ && done_ < due_; }

        void do_piece(std::unique_lock<std::mutex>& lock);

        bool is_reached(long long count) const { return failure_ || done_ >= count; }

        const std::function<void()> piece_;
        const long long enough_;  // pieces that are worth waking a thread for
        long long due_ = 0;
        long long done_ = 0;
        bool running_ = false;
        long long awaited_ = 0;  // count that a sleeping owner waits for, 0 if none sleeps
        std::exception_ptr failure_;
        std::condition_variable reached_;
    };

  private:
    struct Owner;

    HelperThread() = default;

    /** Waits for the running piece and drops the others. */
    ~HelperThread();

    bool start_thread();
    Lane* fullest_lane();
    void work();

    std::mutex mutex_;
    std::condition_variable work_;
    std::vector<Lane*> lanes_;
    std::thread thread_;
    bool asleep_ = false;
    bool ends_ = false;
    bool failed_ = false;  // no thread could be started
};

}  // namespace stream
