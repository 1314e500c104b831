#include "desktop/session/session.h"

#include <algorithm>
#include <exception>

/*
 * Between the window and the work: what is dropped becomes rows, rows become files of a batch, and
 * what the batch tells comes back to the rows. All of it on the main thread. Progress comes often,
 * a few times a second from each worker, and is collected and shown at a steady pace.
 */

namespace desktop {

using quorvane::Outcome;

namespace {

// Smooth enough for a ring that fills, and a tenth of the repaints.
constexpr int kProgressMs = 100;

}  // namespace

Session::Session(Questions& questions, QObject* parent) : QObject(parent), intake_(questions) {
    connect(&intake_, &Intake::accepted, this, &Session::on_accepted);
    connect(&intake_, &Intake::not_audio, this, &Session::not_audio);
    connect(&intake_, &Intake::busy_changed, this, &Session::changed);
    connect(&work_, &Work::started, &files_, &FileList::set_running);
    connect(&work_, &Work::progressed, this, &Session::on_progressed);
    connect(&work_, &Work::finished, this, &Session::on_finished);
    connect(&work_, &Work::ended, this, &Session::on_ended);
    // Started by progress and not by itself: an idle window does nothing.
    progress_timer_.setSingleShot(true);
    progress_timer_.setInterval(kProgressMs);
    connect(&progress_timer_, &QTimer::timeout, this, &Session::show_progress);
}

void Session::take(const std::vector<std::string>& paths) {
    intake_.take(paths);
}

// Overall progress, the time left and the notice at the end count from the first file after a
// pause, not from the start of the program.
void Session::begin_if_idle() {
    if (!work_.busy()) {
        overall_ = Overall();
        present_.clear();
        clock_.start();
    }
}

void Session::on_accepted(const std::vector<Accepted>& files) {
    begin_if_idle();
    for (const Accepted& file : files) {
        accept(file);
    }
    Q_EMIT changed();
}

/** The file's row: a new one, or the one it has already. */
FileList::Id Session::place(const DropFile& file) {
    const int position = files_.position_of_input(file.input);
    if (position >= 0) {
        const FileList::Id id = files_.id_at(position);
        files_.restart(id, file.output);
        return id;
    }
    Row row;
    row.input = file.input;
    row.output = file.output;
    row.weight = Overall::weight_of(file.input);
    return files_.add(std::move(row));
}

// A file that the list shows as finished is leveled again, in its row.
void Session::accept(const Accepted& accepted) {
    const DropFile& file = accepted.file;
    const int position = files_.position_of_input(file.input);
    if (position >= 0 && files_.at(position).state != State::Finished) {
        return;  // it is being leveled already: a second drop of the same file is ignored
    }
    const FileList::Id id = place(file);
    if (!file.failure.empty()) {
        finish_unworked(id, Outcome::Failed, file.failure);
    } else if (!file.passed.empty()) {
        finish_unworked(id, Outcome::Skipped, file.passed);
    } else if (file.existing == Existing::UpToDate) {
        files_.set_finished(id, *file.facts);
        overall_.add_finished(Outcome::UpToDate);
    } else if (file.existing == Existing::Other && accepted.choice == ExistingChoice::Skip) {
        finish_unworked(id, Outcome::Skipped, "its output exists");
    } else {
        try {
            work_.add(
                id, file.input, file.output,
                file.existing == Existing::Other ? Work::Existing::Replace : Work::Existing::Keep);
            overall_.add(files_.row(id)->weight);
            present_.push_back(id);
        } catch (const std::exception& error) {
            finish_unworked(id, Outcome::Failed, error.what());
        }
    }
}

/** A row that is at its end without any work: the batch never hears of the file. */
void Session::finish_unworked(FileList::Id id, Outcome outcome, const std::string& cause) {
    quorvane::FileFacts facts;
    facts.input = files_.row(id)->input;
    facts.output = files_.row(id)->output;
    facts.outcome = outcome;
    facts.cause = cause;
    files_.set_finished(id, facts);
    overall_.add_finished(outcome);
}

void Session::on_progressed(FileList::Id id, double fraction) {
    progress_[id] = fraction;
    if (!progress_timer_.isActive()) {
        progress_timer_.start();
    }
}

// Ten times a second at most, all rows at once.
void Session::show_progress() {
    for (const auto& [id, fraction] : progress_) {
        // A file may have left the list since.
        if (const Row* row = files_.row(id)) {
            overall_.progressed(row->weight, row->fraction, fraction);
            files_.set_fraction(id, fraction);
        }
    }
    progress_.clear();
    Q_EMIT changed();
}

void Session::on_finished(FileList::Id id, const quorvane::FileFacts& facts) {
    progress_.erase(id);  // its whole share is counted here
    if (const Row* row = files_.row(id)) {
        overall_.finished(row->weight, row->fraction, facts.outcome);
        files_.set_finished(id, facts);
        Q_EMIT changed();
    }
}

void Session::on_ended() {
    const Counts& counts = overall_.counts();
    // Who has cancelled all of it needs no notice that it is over.
    if (counts.all() > counts.cancelled) {
        Q_EMIT ended(counts);
    }
    Q_EMIT changed();
}

void Session::cancel(const std::vector<FileList::Id>& ids) {
    for (const FileList::Id id : ids) {
        work_.cancel(id);
    }
}

// Of the present run; what has ended no longer listens.
void Session::cancel_all() {
    cancel(present_);
}

void Session::remove(const std::vector<FileList::Id>& ids) {
    for (const FileList::Id id : ids) {
        const Row* row = files_.row(id);
        if (!row) {
            continue;
        }
        if (row->state == State::Running) {
            work_.cancel(id);  // its row tells what became of it
            continue;
        }
        if (row->state == State::Waiting) {
            work_.cancel(id);
            overall_.finished(row->weight, row->fraction, Outcome::Interrupted);
        }
        files_.remove(id);
    }
    Q_EMIT changed();
}

// Like a drop: with a new plan, since the files on disk may have changed.
void Session::retry(const std::vector<FileList::Id>& ids) {
    std::vector<std::string> inputs;
    for (const FileList::Id id : ids) {
        const Row* row = files_.row(id);
        if (row && row->can_retry()) {
            inputs.push_back(row->input);
        }
    }
    take(inputs);
}

void Session::remove_finished() {
    std::vector<FileList::Id> finished;
    for (int i = 0; i < files_.rowCount(); ++i) {
        if (files_.at(i).state == State::Finished) {
            finished.push_back(files_.id_at(i));
        }
    }
    remove(finished);
}

void Session::shut_down() {
    work_.shut_down();
}

std::optional<double> Session::seconds_left() const {
    return overall_.seconds_left(static_cast<double>(clock_.elapsed()) / 1000);
}

// For the notification's "Show in Folder".
std::vector<std::string> Session::results() const {
    std::vector<std::string> paths;
    // Of the present run: a notification names these and leads to them.
    for (const FileList::Id id : present_) {
        const Row* row = files_.row(id);
        if (row && row->has_result()) {
            paths.push_back(row->output);
        }
    }
    return paths;
}

}  // namespace desktop
