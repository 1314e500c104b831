#include "desktop/intake/intake.h"

#include <exception>

#include "desktop/intake/paths.h"

/*
 * From a drop to files that can be worked on. Drops wait in a queue: each is planned on a thread of
 * its own, since a folder on a slow disk takes its time, and asks its questions before the next one
 * begins. So there is one question on the screen at most, and answers belong to what was asked.
 */

namespace desktop {

Intake::Intake(Questions& questions, QObject* parent) : QObject(parent), questions_(questions) {}

Intake::~Intake() {
    if (planner_.joinable()) {
        planner_.join();
    }
}

void Intake::take(const std::vector<std::string>& paths) {
    if (paths.empty()) {
        return;
    }
    waiting_.push_back(paths);
    if (waiting_.size() == 1) {
        Q_EMIT busy_changed();
        plan_next("");
    }
}

void Intake::plan_next(const std::string& output_folder) {
    if (planner_.joinable()) {
        planner_.join();  // it has posted its plan and is at its end
    }
    planner_ = std::thread([this, paths = waiting_.front(), output_folder] {
        DropPlan plan;
        try {
            plan = plan_drop(paths, output_folder);
        } catch (const std::exception& error) {
            // The drop as a whole failed: one row says why.
            plan.files.push_back({paths.front(), "", Existing::Nothing, error.what(), ""});
        }
        QMetaObject::invokeMethod(
            this, [this, plan] { on_planned(plan); }, Qt::QueuedConnection);
    });
}

// Locked folders come first: the answer makes a new plan of the drop with other outputs, of which
// none or others may exist.
void Intake::on_planned(const DropPlan& plan) {
    if (!plan.locked_folders.empty()) {
        const QString locked = QString::fromStdString(plan.locked_folders.front());
        questions_.ask_folder(locked, [this](const std::string& folder) {
            if (folder.empty()) {
                end_drop();
            } else {
                plan_next(folder);
            }
        });
        return;
    }
    if (!plan.not_audio.empty()) {
        Q_EMIT not_audio(plan.not_audio);
    }
    int others = 0;
    QString example;
    for (const DropFile& file : plan.files) {
        if (file.existing == Existing::Other && file.passed.empty()) {
            example = others++ == 0 ? shown_name(file.output) : example;
        }
    }
    if (others == 0) {
        settle(plan, ExistingChoice::Skip);
        return;
    }
    questions_.ask_existing(others, example,
                            [this, plan](ExistingChoice choice) { settle(plan, choice); });
}

// Names that are free on disk may still be promised to another file of this drop.
void Intake::settle(const DropPlan& plan, ExistingChoice choice) {
    std::vector<Accepted> files;
    std::set<std::string> taken;
    for (const DropFile& file : plan.files) {
        taken.insert(file.output);
    }
    for (const DropFile& planned : plan.files) {
        Accepted file{planned, choice};
        if (planned.existing == Existing::Other && choice == ExistingChoice::KeepBoth) {
            file.file.output = free_name(planned.output, taken);
            file.file.existing = Existing::Nothing;
            taken.insert(file.file.output);
        }
        files.push_back(file);
    }
    Q_EMIT accepted(files);
    end_drop();
}

void Intake::end_drop() {
    waiting_.pop_front();
    if (waiting_.empty()) {
        Q_EMIT busy_changed();
    } else {
        plan_next("");
    }
}

}  // namespace desktop
