#include "desktop/work/work.h"

#include <chrono>
#include <future>
#include <unordered_map>
#include <vector>

#include "leveling/request/request.h"
#include "leveling/storage/scratch.h"

/*
 * The command line's batch on a thread of its own, for as long as there is something to do. Between
 * two runs neither a thread nor a temporary folder exists.
 */

namespace desktop {
namespace {

// Workers that are asked to end remove their files first. One that hangs (a network share that is
// gone, say) must not keep the window's process for ever.
constexpr auto kLongestCleanUp = std::chrono::seconds(5);

}  // namespace

/**
 * One batch, from the first file to the last, with its thread.
 *
 * The batch counts its files from 0 in every run, the window counts on: ids_ and index_of_
 * translate between the two. Only the main thread touches them; the batch's thread posts its
 * numbers there as they are.
 */
class Work::Run : public quorvane::BatchObserver {
  public:
    explicit Run(Work& work) : Run(work, quorvane::Request()) {}

    ~Run() override {
        batch_.close();
        // Only where it was told to stop: a run that ends by itself may take as long as it needs.
        if (ended_.wait_for(kLongestCleanUp) != std::future_status::ready && stopped_) {
            batch_.stop(quorvane::Batch::Stop::Now);
        }
        thread_.join();
    }

    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    void add(std::size_t id,
             const std::string& input,
             const std::string& output,
             Existing existing) {
        const std::size_t index = batch_.add(input, output, existing);
        ids_.resize(index + 1);
        // In time: the batch's signals for this file are queued to the main thread, behind us.
        ids_[index] = id;
        index_of_[id] = index;
        ++unfinished_;
    }

    void cancel(std::size_t id) {
        const auto found = index_of_.find(id);
        if (found != index_of_.end()) {
            batch_.cancel(found->second);
        }
    }

    void stop() {
        stopped_ = true;
        batch_.stop(quorvane::Batch::Stop::CleanUp);
    }

    bool all_finished() const { return unfinished_ == 0; }

    // From the batch's thread; the numbers are translated on the main thread, which gave them.
    void started(std::size_t index) override {
        on_main([this, index] { Q_EMIT work_.started(ids_[index]); });
    }

    void progress(std::size_t index, double fraction) override {
        on_main([this, index, fraction] { Q_EMIT work_.progressed(ids_[index], fraction); });
    }

    void finished(std::size_t index, const quorvane::FileFacts& facts) override {
        on_main([this, index, facts] {
            --unfinished_;
            Q_EMIT work_.finished(ids_[index], facts);
            if (all_finished()) {
                work_.end_run();
            }
        });
    }

  private:
    /** Each file says for itself whether its output may be replaced. */
    Run(Work& work, const quorvane::Request& request)
        : work_(work), batch_(request.jobs, quorvane::job_options(request), *this) {
        std::promise<void> ended;
        ended_ = ended.get_future();
        thread_ = std::thread([this, ended = std::move(ended)]() mutable {
            quorvane::remove_stale_scratch_directories();
            batch_.run();
            ended.set_value();
        });
    }

    template <class Function>
    void on_main(Function function) {
        // The guard lives on the main thread and dies with this run, and its events with it.
        QMetaObject::invokeMethod(&guard_, function, Qt::QueuedConnection);
    }

    Work& work_;
    QObject guard_;
    std::vector<std::size_t> ids_;                           // by the batch's numbers
    std::unordered_map<std::size_t, std::size_t> index_of_;  // the last one of each id
    std::size_t unfinished_ = 0;
    bool stopped_ = false;
    quorvane::Batch batch_;
    std::thread thread_;
    std::future<void> ended_;
};

Work::Work(QObject* parent) : QObject(parent) {}

Work::~Work() {
    shut_down();
}

void Work::add(std::size_t id,
               const std::string& input,
               const std::string& output,
               Existing existing) {
    if (!run_) {
        run_ = std::make_unique<Run>(*this);
    }
    run_->add(id, input, output, existing);
}

void Work::cancel(std::size_t id) {
    if (run_) {
        run_->cancel(id);
    }
}

// Waits for the batch's thread, which waits for the workers to clean up.
void Work::shut_down() {
    if (run_) {
        run_->stop();
        run_.reset();
    }
}

// Queued: the caller is a function of the run. A file that was added meanwhile keeps it.
void Work::end_run() {
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (run_ && run_->all_finished()) {
                run_.reset();
                Q_EMIT ended();
            }
        },
        Qt::QueuedConnection);
}

}  // namespace desktop
