#include <QAccessible>
#include <QDir>
#include <QDropEvent>
#include <QFileDialog>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QStackedLayout>
#include <QTimer>
#include <QTranslator>
#include <cmath>
#include <memory>
#include <thread>

#include "desktop/intake/paths.h"
#include "desktop/model/words.h"
#include "desktop/system/appearance.h"
#include "desktop/system/single_instance.h"
#include "desktop/view/colors.h"
#include "desktop/view/main_window.h"
#include "desktop/view/wrapped_text.h"
#include "leveling/advice/advice_table.h"
#include "tests/desktop/support.h"

using desktop::MainWindow;
using desktop::State;

class WindowTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void a_drop_in_mid_work_joins_the_list();
    void keys_cancel_and_remove();
    void closing_in_mid_work_asks_once();
    void a_later_start_hands_its_files_over();
    void the_keyboard_reaches_everything();
    void every_control_has_a_name();
    void texts_break_between_words_first();
    void colors_stand_out();
    void german_says_it_all();
};

namespace {

void drop(MainWindow& window, const std::vector<std::string>& paths) {
    QMimeData data;
    QList<QUrl> urls;
    for (const std::string& path : paths) {
        urls.append(desktop::to_url(path));
    }
    data.setUrls(urls);
    const QPoint place = window.rect().center();
    QDragEnterEvent enter(place, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, {});
    QApplication::sendEvent(&window, &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent event(place, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, {});
    QApplication::sendEvent(&window, &event);
    QCOMPARE(event.dropAction(), Qt::CopyAction);  // a move would delete the recordings
}

/** Relative luminance as WCAG 2.1 defines it. */
double luminance(const QColor& color) {
    const auto linear = [](double c) {
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(static_cast<double>(color.redF())) +
           0.7152 * linear(static_cast<double>(color.greenF())) +
           0.0722 * linear(static_cast<double>(color.blueF()));
}

double contrast(const QColor& one, const QColor& other) {
    const double a = luminance(one) + 0.05;
    const double b = luminance(other) + 0.05;
    return std::max(a, b) / std::min(a, b);
}

/** More files than can run at the same time, and the first one running; how many. */
int start_work(MainWindow& window, const TempDir& folder) {
    const int count = static_cast<int>(std::thread::hardware_concurrency()) + 2;
    for (int i = 0; i < count; ++i) {
        recording(folder, std::to_string(100 + i) + ".wav", 0.5);
    }
    drop(window, {folder.path()});
    desktop::FileList& files = window.session().files();
    const bool begun = reached(window.session(), [&] {
        return files.rowCount() == count && files.at(0).state == State::Running;
    });
    return begun ? count : 0;
}

QAction* action(const MainWindow& window, const QString& text) {
    for (QAction* action : window.actions()) {
        if (action->text() == text) {
            return action;
        }
    }
    return nullptr;
}

}  // namespace

void WindowTest::a_drop_in_mid_work_joins_the_list() {
    const TempDir folder;
    HeldWorkers held;
    MainWindow window;
    window.show();
    drop(window, {recording(folder, "one.wav", 1)});
    auto* view = window.findChild<desktop::DropView*>();
    QVERIFY(reached(window.session(), [&] { return window.session().working(); }));
    QVERIFY(view->isVisible());
    write_text(folder / "notes.txt", "");
    drop(window, {recording(folder, "שלום 日本.wav", 1), folder / "notes.txt"});
    QTRY_VERIFY_WITH_TIMEOUT(!view->isVisible(), kLongestMs);
    QVERIFY(window.findChild<desktop::MessageBar*>()->isVisible());
    held.release();
    QTRY_VERIFY_WITH_TIMEOUT(at_rest(window.session()), kLongestMs);
    desktop::FileList& files = window.session().files();
    QCOMPARE(files.rowCount(), 2);
    QVERIFY(desktop::loudness_text(files.at(1)).contains("LUFS"));
    QVERIFY(desktop::accessible_text(files.at(1)).startsWith(QString::fromUtf8("שלום 日本.wav")));
    const std::unique_ptr<QMimeData> dragged(files.mimeData({files.index(0), files.index(1)}));
    QCOMPARE(desktop::dragged_files(*dragged).paths.size(), std::size_t(2));
    QCOMPARE(desktop::dragged_files(*dragged).paths[1], files.at(1).output);
}

void WindowTest::keys_cancel_and_remove() {
    const TempDir folder;
    const HeldWorkers held;
    MainWindow window;
    window.show();
    const int count = start_work(window, folder);
    QVERIFY(count > 0);
    desktop::FileList& files = window.session().files();
    auto* list = window.findChild<desktop::FileView*>();
    list->setCurrentIndex(files.index(count - 1));
    QTest::keyClick(&window, Qt::Key_Delete);
    QCOMPARE(files.rowCount(), count - 1);
    QVERIFY(!action(window, "Play")->isEnabled() && !action(window, "Try Again")->isEnabled());
    list->clearSelection();
    QTest::keyClick(&window, Qt::Key_Escape);
    QTRY_VERIFY_WITH_TIMEOUT(at_rest(window.session()), kLongestMs);
    for (int i = 0; i < files.rowCount(); ++i) {
        QCOMPARE(files.at(i).facts.outcome, quorvane::Outcome::Interrupted);
    }
    list->setCurrentIndex(files.index(0));
    QVERIFY(!action(window, "Play")->isEnabled() && action(window, "Try Again")->isEnabled());
}

void WindowTest::closing_in_mid_work_asks_once() {
    const TempDir folder;
    const HeldWorkers held;
    MainWindow window;
    window.show();
    const int count = start_work(window, folder);
    QVERIFY(count > 0);
    window.close();
    auto* question = window.findChild<QMessageBox*>();
    QVERIFY(question && question->isVisible() && window.isVisible());
    question->findChildren<QPushButton*>().last()->click();  // keep leveling
    QVERIFY(window.session().working());
    window.end();
    QVERIFY(!window.isVisible());
    QVERIFY(!window.session().working());
    QCOMPARE(folder.entries().size(), static_cast<std::size_t>(count));
}

void WindowTest::a_later_start_hands_its_files_over() {
    const TempDir runtime;
    qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString(runtime.path()));
    const desktop::SingleInstance first;
    QVERIFY(first.is_first());
    QSignalSpy received(&first, &desktop::SingleInstance::received);
    bool handed_over = false;
    const std::vector<std::string> paths = {"/tmp/\xe9.wav", "/tmp/b"};
    std::thread later([&] {
        const desktop::SingleInstance second;
        handed_over = !second.is_first() && second.hand_over(paths);
    });
    QTRY_COMPARE_WITH_TIMEOUT(received.count(), 1, kLongestMs);
    later.join();
    QVERIFY(handed_over);
    QCOMPARE(received[0][0].value<std::vector<std::string>>(), paths);
}

void WindowTest::the_keyboard_reaches_everything() {
    MainWindow window;
    window.show();
    window.activateWindow();
    auto* choose = window.findChild<desktop::DropView*>()->findChild<QPushButton*>();
    QTRY_VERIFY_WITH_TIMEOUT(choose->hasFocus(), kLongestMs);
    QSignalSpy chosen(choose, &QPushButton::clicked);
    QTest::keyClick(choose, Qt::Key_Return);
    QCOMPARE(chosen.count(), 1);
    QTest::keyClick(window.findChild<QFileDialog*>(), Qt::Key_Escape);
    for (const Qt::Key key : {Qt::Key_Tab, Qt::Key_F10}) {
        // Keys that come before the dialog or the menu has given the focus back are lost.
        window.activateWindow();
        QTRY_VERIFY_WITH_TIMEOUT(QApplication::activeWindow() == &window &&
                                     QApplication::focusWidget() == window.focusWidget(),
                                 kLongestMs);
        bool opened = false;
        QTimer look;  // it runs while the menu is open, which keeps the key's call from returning
        connect(&look, &QTimer::timeout, [&] {
            if (QWidget* menu = QApplication::activePopupWidget()) {
                opened = true;
                menu->close();
            }
        });
        look.start(10);
        if (key == Qt::Key_Tab) {
            QTest::keyClick(window.focusWidget(), key);
            QTest::keyClick(window.focusWidget(), Qt::Key_Return);
        } else {
            QTest::keyClick(&window, key);
        }
        QTRY_VERIFY_WITH_TIMEOUT(opened, kLongestMs);
    }
}

void WindowTest::every_control_has_a_name() {
    MainWindow window;
    QCOMPARE(QAccessible::queryAccessibleInterface(&window)->role(), QAccessible::Window);
    for (const QWidget* child : window.findChildren<QWidget*>()) {
        if (child->focusPolicy() & Qt::TabFocus &&
            child->objectName() != "qt_scrollarea_viewport") {
            QAccessibleInterface* known =
                QAccessible::queryAccessibleInterface(const_cast<QWidget*>(child));
            QVERIFY2(!known->text(QAccessible::Name).isEmpty(), child->metaObject()->className());
            QVERIFY2(known->text(QAccessible::Name) != QString::fromUtf8("☰"),
                     "a symbol does not name the button");
        }
    }
}

void WindowTest::texts_break_between_words_first() {
    const QFont font;
    const auto height = [&font](const QString& text, int width) {
        return desktop::wrapped_height(font, text, width);
    };
    QVERIFY(height("word\nword", 1000) > height("word", 1000));
    // Room for most of the next word, too: breaks between letters would take two lines.
    const int width = QFontMetrics(font).horizontalAdvance("word wor");
    QCOMPARE(height("word word word", width), height("word\nword\nword", 1000));
    QVERIFY(height(QString(40, 'm'), width) > height("m\nm", 1000));
}

void WindowTest::colors_stand_out() {
    using desktop::Appearance;
    constexpr double kLeast = 4.5;
    QVERIFY(contrast(desktop::kDarkText, desktop::kDarkFillUnderDrag) >= kLeast);
    QVERIFY(contrast(desktop::kDarkSoftText, desktop::kDarkFillUnderDrag) >= kLeast);
    QVERIFY(contrast(desktop::kDarkText, desktop::kDarkButton) >= kLeast);
    QVERIFY(contrast(desktop::failure_color(QPalette(desktop::kDarkButton, desktop::kDarkFill)),
                     desktop::kDarkFillUnderDrag) >= kLeast);
    for (const auto scheme : {Appearance::Scheme::Light, Appearance::Scheme::Dark}) {
        const QPalette palette = Appearance::palette(scheme);
        const QColor base = palette.color(QPalette::Base);
        const QColor selected = desktop::mixed(base, palette.color(QPalette::Highlight), 0.18);
        QCOMPARE(desktop::is_dark(palette), scheme == Appearance::Scheme::Dark);
        for (const QColor& ground : {base, selected}) {
            QVERIFY(contrast(palette.color(QPalette::Text), ground) >= kLeast);
            QVERIFY(contrast(desktop::soft_text_color(palette), ground) >= kLeast);
            QVERIFY(contrast(desktop::failure_color(palette), ground) >= kLeast);
            QVERIFY(contrast(desktop::done_color(palette), ground) >= kLeast);
        }
        QVERIFY(contrast(palette.color(QPalette::ButtonText), palette.color(QPalette::Button)) >=
                kLeast);
        QVERIFY(contrast(palette.color(QPalette::HighlightedText),
                         palette.color(QPalette::Highlight)) >= kLeast);
    }
}

void WindowTest::german_says_it_all() {
    QTranslator german;
    QVERIFY(german.load("quorvane_de", TRANSLATIONS));
    QApplication::installTranslator(&german);
    desktop::Counts counts;
    counts.add(quorvane::Outcome::Leveled);
    counts.add(quorvane::Outcome::Failed);
    QCOMPARE(desktop::counts_text(counts), QString::fromUtf8("1 ausgeglichen, 1 fehlgeschlagen"));
    QCOMPARE(desktop::time_left_text(61), QString::fromUtf8("noch 2 Minuten"));
    desktop::Row broken;
    broken.state = State::Finished;
    broken.facts.outcome = quorvane::Outcome::Failed;
    broken.facts.cause = "cannot be read as audio: Format not recognised.";
    QCOMPARE(desktop::state_text(broken),
             QStringLiteral("Fehlgeschlagen: kann nicht als Audio gelesen werden: "
                            "Format nicht erkannt."));
    desktop::Row leveled;
    leveled.state = State::Finished;
    leveled.facts.outcome = quorvane::Outcome::Leveled;
    leveled.facts.preparation.emplace();
    leveled.facts.preparation->raised_db = 31.25;
    leveled.facts.preparation->pauses = 2;
    leveled.facts.preparation->pauses_s = 65;
    leveled.facts.preparation->even = true;
    QVERIFY(desktop::state_text(leveled).contains(QString::fromUtf8("vor dem Ausgleichen um ")));
    QVERIFY(desktop::tool_tip(leveled).contains("2 lange Pausen (1:05 min) bleiben leise"));
    QVERIFY(desktop::tool_tip(leveled).contains(QString::fromUtf8("schon gleichmäßig")));
    leveled.facts.after.emplace();
    leveled.facts.findings = {{"side-silent", quorvane::Severity::Problem, 100, "dB", {}, "right"},
                              {"hum", quorvane::Severity::Warning, -8.4, "dB", {}, "50 Hz"}};
    leveled.facts.speech = {quorvane::SpeechState::Measured, 9, 2, {}, 14.2, 0.4};
    QVERIFY(desktop::state_text(leveled).startsWith(
        "Ausgeglichen, aber: die rechte Seite ist stumm, und Netzbrummen (50 Hz) liegt 8"));
    const QString tip = desktop::tool_tip(leveled);
    QVERIFY(tip.contains("lagen bis zu 14 dB auseinander; jetzt innerhalb von 1 dB."));
    QVERIFY(tip.contains("Zuerst mit einem Brummfilter entfernen"));
    using quorvane::SpeechState;
    const std::pair<quorvane::SpeechLevels, const char*> speech[] = {
        {{SpeechState::Measured, 9, 2, {}, 3, 3}, "liegen wie zuvor innerhalb von 3 dB."},
        {{SpeechState::Measured, 9, 2, {}, 1, 3}, "innerhalb von 1 dB; jetzt bis zu 3 dB"},
        {{SpeechState::NoSpeech, 0, 0, {}, 0, 0}, "Keine Sprache gefunden."},
        {{SpeechState::TooShort, 0, 0, {}, 0, 0}, "Zu kurz zum Messen"}};
    for (const auto& [levels, words] : speech) {
        leveled.facts.speech = levels;
        QVERIFY2(desktop::tool_tip(leveled).contains(words), words);
    }
    for (const quorvane::Advice& advice : quorvane::advice_table()) {
        for (const char* text : {advice.clause, advice.window}) {
            QVERIFY2(*text == 0 || QCoreApplication::translate("FindingText", text) != text, text);
            QVERIFY2(!QString(text).contains("--"), text);
        }
    }
    MainWindow window;
    QVERIFY(window.findChild<desktop::DropView*>()->accessibleName().contains("hierher"));
    QApplication::removeTranslator(&german);
}

std::unique_ptr<QObject> new_window_test() {
    return std::make_unique<WindowTest>();
}

#include "window_test.moc"
