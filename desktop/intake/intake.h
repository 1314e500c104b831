#pragma once

#include <QObject>
#include <QString>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "desktop/intake/drop_plan.h"

namespace desktop {

/** What becomes of outputs that exist: KeepBoth gives the new ones names of their own. */
enum class ExistingChoice { Replace, KeepBoth, Skip };

/** What only the user can tell. Each answer comes once, later or at once, on the main thread. */
class Questions {
  public:
    virtual ~Questions() = default;

    /** So many outputs of a drop exist and are out of date; example is the first one's name. */
    virtual void ask_existing(int count,
                              const QString& example,
                              std::function<void(ExistingChoice)> answer) = 0;

    /** The folder cannot be written. An empty answer gives the drop up. */
    virtual void ask_folder(const QString& locked, std::function<void(std::string)> answer) = 0;
};

/** A file of a drop once every question is answered. */
struct Accepted {
    DropFile file;
    ExistingChoice choice = ExistingChoice::Skip;  // meant where file.existing is Other
};

/**
 * Takes what the user hands over, one drop after the other: looks through its folders on a thread
 * of its own and asks what has to be asked, at most one question of each kind for a drop.
 *
 * Drops that come while a folder is searched or a question is open wait in line, so that two
 * questions never stand over each other. Files that were accepted before are leveled meanwhile.
 */
class Intake : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY(Intake)

  public:
    explicit Intake(Questions& questions, QObject* parent = nullptr);
    ~Intake() override;

    /** A drop: absolute paths, files and folders mixed. An empty list is ignored. */
    void take(const std::vector<std::string>& paths);

    /** A drop is being searched, asked about, or waits. */
    bool busy() const { return !waiting_.empty(); }

  Q_SIGNALS:
    /** The files of a drop that are to be leveled or listed. Emitted once for each drop. */
    void accepted(const std::vector<desktop::Accepted>& files);
    /** Named files (not those found in folders) whose content is not audio. */
    void not_audio(const std::vector<std::string>& paths);
    /** busy() has another value. */
    void busy_changed();

  private:
    // The steps of a drop, in this order; the second question is asked after the first answer.
    void plan_next(const std::string& output_folder);
    void on_planned(const DropPlan& plan);
    void settle(const DropPlan& plan, ExistingChoice choice);
    void end_drop();

    Questions& questions_;
    std::deque<std::vector<std::string>> waiting_;  // the first one is being worked on
    std::thread planner_;
};

}  // namespace desktop
