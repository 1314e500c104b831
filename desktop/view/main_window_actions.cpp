#include <QApplication>
#include <QClipboard>
#include <QMimeData>
#include <algorithm>
#include <exception>

#include "desktop/intake/paths.h"
#include "desktop/system/open.h"
#include "desktop/system/reports.h"
#include "desktop/view/main_window.h"

// What the user asks of the window: by its menu, its keys and the rows' buttons.

namespace desktop {

void MainWindow::choose_files() {
    dialogs_.choose_files([this](const std::vector<std::string>& paths) { take(paths); });
}

void MainWindow::choose_folder() {
    dialogs_.choose_folder([this](const std::vector<std::string>& paths) { take(paths); });
}

void MainWindow::about() {
    dialogs_.about();
}

// File managers put the files that are copied with Ctrl+C on the clipboard as a drag carries them.
void MainWindow::paste() {
    take(dragged_files(*QApplication::clipboard()->mimeData()).paths);
}

// The drop view shows one file and needs no selection for it.
std::vector<FileList::Id> MainWindow::chosen() const {
    if (const auto file = drop_view_->file()) {
        return {*file};
    }
    return file_view_->selected();
}

std::vector<std::string> MainWindow::chosen_results() const {
    std::vector<std::string> paths;
    for (const FileList::Id id : chosen()) {
        const Row* row = file_view_->files().row(id);
        if (row->has_result()) {
            paths.push_back(row->output);
        }
    }
    return paths;
}

// With nothing selected, all that waits or runs.
void MainWindow::cancel() {
    const std::vector<FileList::Id> ids = chosen();
    if (ids.empty()) {
        session_.cancel_all();
    } else {
        session_.cancel(ids);
    }
}

void MainWindow::remove() {
    session_.remove(chosen());
}

// As a drop of the same files: what failed or was cancelled is leveled again.
void MainWindow::retry() {
    session_.retry(chosen());
}

// Of several the first: players open a window for each.
void MainWindow::play() {
    const std::vector<FileList::Id> ids = chosen();
    if (!ids.empty()) {
        play_file(ids.front());
    }
}

void MainWindow::play_file(FileList::Id id) {
    const Row* row = session_.files().row(id);
    if (row->has_result() && !open_file(row->output)) {
        message_->tell(tr("No program was found to play %1.").arg(shown_name(row->output)));
    }
}

void MainWindow::show_in_folder() {
    desktop::show_in_folder(chosen_results());
}

// The sign that is painted at the row's end: a cross until the file is finished, then a folder.
void MainWindow::on_row_button(FileList::Id id) {
    const Row* row = session_.files().row(id);
    if (row->state != State::Finished) {
        session_.cancel({id});
    } else if (row->has_result()) {
        desktop::show_in_folder({row->output});
    }
}

void MainWindow::report() {
    std::vector<quorvane::FileFacts> facts;
    const std::vector<FileList::Id> ids = chosen();
    FileList& files = session_.files();
    // Of the selected files, or of all: those that were measured, in the list's order.
    for (int i = 0; i < files.rowCount(); ++i) {
        const bool wanted =
            ids.empty() || std::find(ids.begin(), ids.end(), files.id_at(i)) != ids.end();
        if (wanted && files.at(i).is_measured()) {
            facts.push_back(files.at(i).facts);
        }
    }
    if (facts.empty()) {
        message_->tell(tr("There is nothing to report yet."));
        return;
    }
    try {
        const std::string page = write_cached_report(facts);
        if (!open_file(page)) {
            message_->tell(
                tr("No program was found to show %1.").arg(QString::fromStdString(page)));
        }
    } catch (const std::exception& error) {
        message_->tell(
            tr("The report could not be written: %1").arg(QString::fromLocal8Bit(error.what())));
    }
}

void MainWindow::on_not_audio(const std::vector<std::string>& paths) {
    // A folder of pictures by mistake must not fill the window with their names.
    constexpr int kMostNamed = 3;
    QStringList names;
    for (const std::string& path : paths) {
        if (names.size() < kMostNamed) {
            names.append(shown_name(path));
        }
    }
    const int more = static_cast<int>(paths.size()) - static_cast<int>(names.size());
    QString text = tr("Not audio, left out: %1").arg(names.join(QStringLiteral(", ")));
    if (more > 0) {
        text += tr(" and %n more", nullptr, more);
    }
    message_->tell(text);
}

}  // namespace desktop
