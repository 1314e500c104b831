// The window of Quorvane for Linux desktops. It shows and asks; the work is the command line's:
// its search, plan, worker processes, metadata, facts and reports.

#include <QApplication>
#include <QIcon>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Common/version.h"
#include "desktop/intake/paths.h"
#include "desktop/system/appearance.h"
#include "desktop/system/end_signals.h"
#include "desktop/system/names.h"
#include "desktop/system/single_instance.h"
#include "desktop/view/main_window.h"
#include "leveling/worker/job.h"
#include "leveling/worker/worker.h"

namespace {

/** Qt has taken its own options; what is left are files. A lone -- ends nothing here. */
std::vector<std::string> files_named(int argc, char** argv) {
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") != 0) {
            words.emplace_back(argv[i]);
        }
    }
    return desktop::absolute_paths(words);
}

// Qt speaks the language that the window speaks, not the desktop's: buttons in French below an
// English question would read badly, and Arabic ones would turn the English window around. English
// is a translation too, as it holds the plurals.
void install_translations(QTranslator& own, QTranslator& of_qt) {
    const QString folder = QStringLiteral(":/i18n");
    const QString name = QStringLiteral("quorvane");
    if (own.load(QLocale(), name, QStringLiteral("_"), folder) ||
        own.load(name + QStringLiteral("_en"), folder)) {
        QCoreApplication::installTranslator(&own);
    }
    if (of_qt.load(QLocale(own.language()), QStringLiteral("qtbase"), QStringLiteral("_"),
                   QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        QCoreApplication::installTranslator(&of_qt);
    }
}

/** Every size as it was drawn: a scaled one is blurred. */
QIcon program_icon() {
    QIcon icon;
    for (const int size : {16, 22, 24, 32, 48, 64, 128, 256}) {
        icon.addFile(QStringLiteral(":/icons/%1.png").arg(size));
    }
    return icon;
}

int show_window(int argc, char** argv) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("quorvane"));
    QApplication::setApplicationDisplayName(QStringLiteral("Quorvane"));
    QApplication::setApplicationVersion(QString::fromLatin1(kVersion));
    QApplication::setDesktopFileName(QString::fromLatin1(desktop::kApplicationId));
    const std::vector<std::string> files = files_named(argc, argv);

    const desktop::SingleInstance instance;
    if (!instance.is_first()) {
        if (instance.hand_over(files)) {
            return 0;
        }
        std::fputs("quorvane-desktop: the window that is open does not answer\n", stderr);
        return 1;
    }
    // Only for who shows a window; the second start has said all by now.
    QTranslator own;
    QTranslator of_qt;
    install_translations(own, of_qt);
    QApplication::setWindowIcon(program_icon());
    const desktop::EndSignals end_signals;
    const desktop::Appearance appearance;

    desktop::MainWindow window;
    QObject::connect(&end_signals, &desktop::EndSignals::arrived, &window,
                     &desktop::MainWindow::end);
    QObject::connect(&instance, &desktop::SingleInstance::received, &window,
                     [&](const std::vector<std::string>& paths, const QByteArray& token) {
                         window.come_to_front(token);
                         window.take(paths);
                     });
    window.show();
    window.take(files);
    return QApplication::exec();
}

}  // namespace

int main(int argc, char** argv) {
    // The batch starts its workers from this very program. They have no window and load no theme.
    if (argc == 2 && std::strcmp(argv[1], quorvane::kWorkerWord) == 0) {
        return quorvane::worker_main();
    }
    return show_window(argc, argv);
}
