#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "desktop/intake/intake.h"
#include "desktop/model/file_list.h"
#include "desktop/model/overall.h"
#include "desktop/work/work.h"

namespace desktop {

/**
 * What the window shows and does, without a widget: drops come in, files are worked on, the list
 * keeps what became of them.
 *
 * Workers tell their progress far more often than an eye can follow, and several of them at once.
 * So progress is kept back and brought into the list ten times a second; what becomes of a file is
 * told at once.
 */
class Session : public QObject {
    Q_OBJECT

  public:
    explicit Session(Questions& questions, QObject* parent = nullptr);

    FileList& files() { return files_; }

    /** Files and folders that the user hands over: absolute paths, at any time. */
    void take(const std::vector<std::string>& paths);

    /** Stops files that wait or run; they stay in the list as cancelled. */
    void cancel(const std::vector<FileList::Id>& ids);
    void cancel_all();

    /** A waiting file leaves the list, a running one is stopped first, a finished one only goes. */
    void remove(const std::vector<FileList::Id>& ids);

    /** Files that failed or were cancelled are leveled again. */
    void retry(const std::vector<FileList::Id>& ids);
    /** Empties the list of all that needs no more work. */
    void remove_finished();

    /** Stops everything and waits until nothing half-done is left. */
    void shut_down();

    /** Folders are being looked through or a question is open. */
    bool searching() const { return intake_.busy(); }

    /** Files wait or are leveled. */
    bool working() const { return work_.busy(); }

    /** Of the present work, or of the last one. */
    const Overall& overall() const { return overall_; }

    /** By the pace of the present work; nothing while that cannot be estimated yet. */
    std::optional<double> seconds_left() const;

    /** The results of the present or last work, first to last. */
    std::vector<std::string> results() const;

  Q_SIGNALS:
    /** Anything above changed but the list's rows, which tell themselves. */
    void changed();

    /** Files of a drop whose content is not audio. */
    void not_audio(const std::vector<std::string>& paths);

    /** Work is over that was not all cancelled. */
    void ended(const desktop::Counts& counts);

  private:
    // From a drop to the queue: an output that is kept ends its file without any work.
    void on_accepted(const std::vector<Accepted>& files);
    void accept(const Accepted& accepted);
    FileList::Id place(const DropFile& file);
    void finish_unworked(FileList::Id id, quorvane::Outcome outcome, const std::string& cause);
    // What the workers report, on the main thread.
    void on_progressed(FileList::Id id, double fraction);
    void show_progress();
    void on_finished(FileList::Id id, const quorvane::FileFacts& facts);
    void on_ended();
    void begin_if_idle();

    // In this order: the work reports into the list until it ends, so the list goes last.
    FileList files_;
    Intake intake_;
    Work work_;
    Overall overall_;
    QElapsedTimer clock_;
    std::vector<FileList::Id> present_;                  // the files of the present work
    std::unordered_map<FileList::Id, double> progress_;  // told, not yet in the list; 0 to 1
    QTimer progress_timer_;                              // runs while there is any
};

}  // namespace desktop
