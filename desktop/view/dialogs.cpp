#include "desktop/view/dialogs.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFileDialog>
#include <QPushButton>

#include "desktop/intake/paths.h"
#include "leveling/inputs/file_kind.h"

namespace desktop {
namespace {

/** The texts of this file stand in one context of the translations. */
struct Words {
    Q_DECLARE_TR_FUNCTIONS(Dialogs)
};

// A file dialog hands back names in Unicode. encodeName() makes the bytes of the file system again,
// which for names that are no UTF-8 are lost: those can be dropped, but not chosen.
std::vector<std::string> local_paths(const QStringList& names) {
    std::vector<std::string> paths;
    for (const QString& name : names) {
        paths.push_back(QFile::encodeName(name).toStdString());
    }
    return paths;
}

/** Names are all that a file dialog can choose by; "All files" is for the rest. */
QString audio_filter() {
    QStringList patterns;
    for (const std::string& extension : quorvane::wanted_extensions()) {
        patterns.append(QStringLiteral("*.") + QString::fromStdString(extension));
        // Recorders write TALK.WAV, and a dialog may tell cases apart.
        patterns.append(patterns.last().toUpper());
    }
    return Words::tr("Recordings") + QStringLiteral(" (") + patterns.join(' ') +
           QStringLiteral(")");
}

}  // namespace

// Without the picture of a question mark: desktops show none, and the text asks already.
QMessageBox* Dialogs::new_question(const QString& text, const QString& explanation) {
    auto* box = new QMessageBox(QMessageBox::NoIcon, QStringLiteral("Quorvane"), text,
                                QMessageBox::NoButton, &window_);
    // Names of files stand in it, which may look like HTML.
    box->setTextFormat(Qt::PlainText);
    box->setInformativeText(explanation);
    box->setAttribute(Qt::WA_DeleteOnClose);
    return box;
}

// Asked on quitting while files are leveled.
void Dialogs::ask_to_stop(const std::function<void()>& stop) {
    QMessageBox* box = new_question(Words::tr("Stop leveling and quit?"),
                                    Words::tr("Files that are not finished get no leveled copy."));
    const QPushButton* yes = box->addButton(Words::tr("Stop and Quit"), QMessageBox::AcceptRole);
    box->setDefaultButton(box->addButton(Words::tr("Keep Leveling"), QMessageBox::RejectRole));
    // By the button and not by the box's end: Escape, the close button and a window manager that
    // ends the box are all a no.
    QObject::connect(yes, &QPushButton::clicked, &window_, stop);
    box->open();
}

// The work may go on for minutes, or end, before the user answers. The box is therefore modal to
// the window alone and the answer a call of its own; the drop waits in line until it comes.
void Dialogs::ask_existing(int count,
                           const QString& example,
                           std::function<void(ExistingChoice)> answer) {
    QMessageBox* box = new_question(
        count == 1 ? Words::tr("“%1” exists already.").arg(example)
                   : Words::tr("%n leveled files exist already.", nullptr, count),
        count == 1
            ? Words::tr("Its recording has changed since, or the file came from somewhere else.")
            : Words::tr("Their recordings have changed since, or the files came from somewhere "
                        "else."));
    QPushButton* replace = box->addButton(Words::tr("Replace"), QMessageBox::DestructiveRole);
    QPushButton* both = box->addButton(Words::tr("Keep Both"), QMessageBox::AcceptRole);
    QPushButton* skip = box->addButton(Words::tr("Skip"), QMessageBox::RejectRole);
    box->setDefaultButton(both);
    box->setEscapeButton(skip);
    // finished() comes once for every way that a box can go, so that no drop waits for ever.
    QObject::connect(box, &QMessageBox::finished, &window_, [=] {
        answer(box->clickedButton() == replace ? ExistingChoice::Replace
               : box->clickedButton() == both  ? ExistingChoice::KeepBoth
                                               : ExistingChoice::Skip);
    });
    box->open();
}

void Dialogs::ask_folder(const QString& locked, std::function<void(std::string)> answer) {
    QMessageBox* box =
        new_question(Words::tr("Where shall the leveled files go?"),
                     Words::tr("Nothing can be written to the folder “%1”.").arg(locked));
    QPushButton* choose = box->addButton(Words::tr("Choose Folder…"), QMessageBox::AcceptRole);
    box->addButton(Words::tr("Cancel"), QMessageBox::RejectRole);
    box->setDefaultButton(choose);
    QObject::connect(box, &QMessageBox::finished, &window_, [=] {
        if (box->clickedButton() == choose) {
            choose_output_folder(answer);
        } else {
            answer("");
        }
    });
    box->open();
}

// As in ask_existing(): an empty answer is one, too.
void Dialogs::choose_output_folder(const std::function<void(std::string)>& answer) {
    QFileDialog* dialog = new_file_dialog(Words::tr("Folder for the Leveled Files"));
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    QObject::connect(dialog, &QDialog::finished, &window_, [=](int result) {
        answer(result == QDialog::Accepted ? local_paths(dialog->selectedFiles()).front() : "");
    });
    dialog->open();
}

QFileDialog* Dialogs::new_file_dialog(const QString& title) {
    auto* dialog = new QFileDialog(&window_, title);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    // Fifty patterns behind the filter's name would not help anyone.
    dialog->setOption(QFileDialog::HideNameFilterDetails);
    return dialog;
}

void Dialogs::choose_files(const TakePaths& take) {
    QFileDialog* dialog = new_file_dialog(Words::tr("Choose Recordings"));
    dialog->setFileMode(QFileDialog::ExistingFiles);
    dialog->setNameFilters({audio_filter(), Words::tr("All files (*)")});
    QObject::connect(dialog, &QFileDialog::filesSelected, &window_,
                     [take](const QStringList& names) { take(local_paths(names)); });
    dialog->open();
}

void Dialogs::choose_folder(const TakePaths& take) {
    QFileDialog* dialog = new_file_dialog(Words::tr("Choose a Folder of Recordings"));
    dialog->setFileMode(QFileDialog::Directory);
    QObject::connect(dialog, &QFileDialog::filesSelected, &window_,
                     [take](const QStringList& names) { take(local_paths(names)); });
    dialog->open();
}

void Dialogs::about() {
    auto* box = new QMessageBox(&window_);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowTitle(Words::tr("About Quorvane"));
    box->setIconPixmap(window_.windowIcon().pixmap(QSize(64, 64), window_.devicePixelRatioF()));
    // The version stands first, as it is what a report of a fault has to name.
    box->setText(QStringLiteral("Quorvane %1").arg(QApplication::applicationVersion()));
    box->setInformativeText(
        Words::tr("Levels the loudness of spoken word.\n\nStands on Qt, FFmpeg, libsndfile, Boost, "
                  "TagLib, fmt and JSON for Modern C++."));
    box->open();
}

}  // namespace desktop
