#pragma once

#include <QObject>
#include <memory>
#include <string>
#include <thread>

#include "leveling/batch/batch.h"

namespace desktop {

/**
 * Runs the command line's batch for the window. The batch, its thread and its private directory
 * exist only while there is work, so that an idle window has neither.
 *
 * Files are named by the caller's numbers. Signals come on the main thread, for each file started,
 * any progress, finished, in this order; a file that was cancelled in time has no started.
 */
class Work : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY(Work)

  public:
    explicit Work(QObject* parent = nullptr);
    ~Work() override;  // stops what runs

    using Existing = quorvane::Batch::Existing;

    /** Queues a file. Throws std::runtime_error when no private directory can be made. */
    void add(std::size_t id,
             const std::string& input,
             const std::string& output,
             Existing existing);

    /** Waiting or running; its finished comes with Outcome::Interrupted. Another id: nothing. */
    void cancel(std::size_t id);

    /** Cancels all and waits until the workers are gone and their files removed. */
    void shut_down();

    /** Files wait or are worked on. */
    bool busy() const { return run_ != nullptr; }

  Q_SIGNALS:
    // With the caller's number; the fraction is 0 to 1.
    void started(std::size_t id);
    void progressed(std::size_t id, double fraction);
    void finished(std::size_t id, const quorvane::FileFacts& facts);

    /** The last file is finished. */
    void ended();

  private:
    class Run;

    void end_run();

    std::unique_ptr<Run> run_;  // while there is work
};

}  // namespace desktop
