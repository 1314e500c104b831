#include "desktop/view/main_window.h"

#include <QAccessibleWidget>
#include <QAction>
#include <QApplication>
#include <QDragEnterEvent>
#include <QHBoxLayout>
#include <QMimeData>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "desktop/intake/paths.h"
#include "desktop/model/words.h"
#include "desktop/system/appearance.h"
#include "desktop/system/open.h"
#include "desktop/view/flat_style.h"

namespace desktop {
namespace {

// In logical pixels. The usual size shows seven rows; the least one the ring with all its texts.
constexpr QSize kUsualSize(640, 520);
// In logical pixels: room for the drop view's ring and buttons.
constexpr QSize kLeastSize(420, 380);

/**
 * Ignores files dragged out of this window: a result that is released too early would be leveled
 * again.
 */
bool comes_from_here(const QDropEvent& event) {
    return event.source() != nullptr;
}

/**
 * Qt tells a screen reader that a plain widget is a filler, even where it is a window. As a window
 * it is announced when it comes to the front.
 */
QAccessibleInterface* new_window_interface(const QString& /*class_name*/, QObject* object) {
    auto* window = qobject_cast<MainWindow*>(object);
    return window ? new QAccessibleWidget(window, QAccessible::Window) : nullptr;
}

/** Return presses it as well as Space, as in other desktops' windows. */
QPushButton* new_button(const QString& text, QWidget* parent) {
    auto* button = new QPushButton(text, parent);
    button->setAutoDefault(true);
    return button;
}

}  // namespace

MainWindow::MainWindow() : dialogs_(*this), session_(dialogs_) {
    // Before the first query of this window's interface, which Qt then keeps.
    QAccessible::installFactory(new_window_interface);
    setWindowTitle(QStringLiteral("Quorvane"));
    setAcceptDrops(true);
    resize(kUsualSize);

    message_ = new MessageBar(this);
    drop_view_ = new DropView(session_.files(), this);
    drop_view_->setMinimumSize(kLeastSize);  // the list's bar may need more, for its words
    file_view_ = new FileView(session_.files(), this);
    add_actions();
    list_page_ = new_list_page();

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(message_);
    pages_ = new QStackedLayout;
    pages_->addWidget(drop_view_);
    pages_->addWidget(list_page_);
    column->addLayout(pages_, 1);

    connect_views();
    take_colors();
    refresh();
}

// Buttons, keys and menus come together in the same slots, so that each does what the others do.
void MainWindow::connect_views() {
    connect(drop_view_, &DropView::choose, this, &MainWindow::choose_files);
    connect(drop_view_, &DropView::cancel, this, &MainWindow::cancel);
    connect(drop_view_, &DropView::play, this, &MainWindow::play);
    connect(drop_view_, &DropView::show_in_folder, this, &MainWindow::show_in_folder);
    connect(drop_view_, &DropView::report, this, &MainWindow::report);
    connect(drop_view_, &DropView::retry, this, &MainWindow::retry);
    connect(file_view_, &FileView::play, this, &MainWindow::play_file);
    connect(file_view_, &FileView::row_button_clicked, this, &MainWindow::on_row_button);

    connect(&session_, &Session::changed, this, &MainWindow::refresh);
    connect(&session_, &Session::not_audio, this, &MainWindow::on_not_audio);
    connect(&session_, &Session::ended, this, &MainWindow::on_ended);
    connect(&session_.files(), &QAbstractItemModel::rowsRemoved, this, &MainWindow::refresh);
    connect(&notification_, &Notification::clicked, this,
            [this] { desktop::show_in_folder(session_.results()); });
}

QAction* MainWindow::add_action(const QString& text,
                                const QKeySequence& key,
                                void (MainWindow::*slot)()) {
    auto* action = new QAction(text, this);
    action->setShortcut(key);
    connect(action, &QAction::triggered, this, slot);
    // A shortcut lives where its action does: in the window it works whatever has the focus.
    addAction(action);
    return action;
}

void MainWindow::add_actions() {
    // What concerns files is also the list's context menu.
    play_ = add_action(tr("Play"), {}, &MainWindow::play);
    show_in_folder_ = add_action(tr("Show in Folder"), {}, &MainWindow::show_in_folder);
    report_ = add_action(tr("Report"), {}, &MainWindow::report);
    retry_ = add_action(tr("Try Again"), {}, &MainWindow::retry);
    cancel_ = add_action(tr("Cancel"), Qt::Key_Escape, &MainWindow::cancel);
    remove_ = add_action(tr("Remove from List"), QKeySequence::Delete, &MainWindow::remove);
    file_view_->addActions({play_, show_in_folder_, report_, retry_, cancel_, remove_});
    connect(file_view_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &MainWindow::refresh_actions);

    menu_ = new QMenu(this);
    fill_menu();
    drop_view_->set_corner(new_menu_button(drop_view_));
}

void MainWindow::fill_menu() {
    menu_->addAction(add_action(tr("Open Files…"), QKeySequence::Open, &MainWindow::choose_files));
    menu_->addAction(add_action(tr("Open Folder…"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O),
                                &MainWindow::choose_folder));
    menu_->addAction(add_action(tr("Paste"), QKeySequence::Paste, &MainWindow::paste));
    menu_->addSeparator();
    auto* clear = new QAction(tr("Clear Finished"), this);
    connect(clear, &QAction::triggered, &session_, &Session::remove_finished);
    menu_->addAction(clear);
    menu_->addSeparator();
    menu_->addAction(add_action(tr("About Quorvane"), {}, &MainWindow::about));
    // Not every desktop has a standard key for it.
    auto* quit = new QAction(tr("Quit"), this);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    connect(quit, &QAction::triggered, this, &QWidget::close);
    addAction(quit);
    menu_->addAction(quit);
}

// One for each page, as a widget has one place; both open the same menu.
QToolButton* MainWindow::new_menu_button(QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setText(QStringLiteral("☰"));
    button->setAccessibleName(tr("Menu"));
    button->setFocusPolicy(Qt::StrongFocus);
    button->setPopupMode(QToolButton::InstantPopup);
    button->setMenu(menu_);
    // Space opens it by itself. The button that is not shown hears nothing.
    for (const auto& [key, where] : {std::pair(Qt::Key_Return, Qt::WidgetShortcut),
                                     std::pair(Qt::Key_F10, Qt::WindowShortcut)}) {
        auto* shortcut = new QShortcut(key, button);
        shortcut->setContext(where);
        connect(shortcut, &QShortcut::activated, button, &QToolButton::showMenu);
    }
    return button;
}

// A desktop with a style of its own, as Plasma, dresses Qt programs better than we could.
void MainWindow::take_colors() {
    if (!takes_flat_style()) {
        return;
    }
    // The boxes that open over the window take it from there as well.
    const QString style = flat_style(palette(), palette().color(QPalette::Highlight));
    if (style != styleSheet()) {
        setStyleSheet(style);
    }
}

QWidget* MainWindow::new_list_page() {
    auto* page = new QWidget(this);
    auto* column = new QVBoxLayout(page);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(file_view_, 1);
    column->addLayout(new_bar(page));
    return page;
}

QLayout* MainWindow::new_bar(QWidget* page) {
    auto* bar = new QHBoxLayout;
    bar->setContentsMargins(12, 10, 12, 10);
    bar->setSpacing(10);
    QPushButton* add = new_button(tr("Add Files…"), page);
    connect(add, &QPushButton::clicked, this, &MainWindow::choose_files);
    bar->addWidget(add);
    auto* middle = new QVBoxLayout;
    middle->setSpacing(4);
    progress_text_ = new QLabel(page);
    // In a narrow window the time left goes to a second line, and no word to one of its own.
    constexpr int kLeastCharacters = 22;
    progress_text_->setWordWrap(true);
    progress_text_->setMinimumWidth(fontMetrics().averageCharWidth() * kLeastCharacters);
    progress_ = new QProgressBar(page);
    progress_->setTextVisible(false);
    progress_->setFixedHeight(6);
    progress_->setAccessibleName(tr("Overall progress"));
    middle->addWidget(progress_text_);
    middle->addWidget(progress_);
    bar->addLayout(middle, 1);
    cancel_all_ = new_button(tr("Cancel All"), page);
    connect(cancel_all_, &QPushButton::clicked, &session_, &Session::cancel_all);
    bar->addWidget(cancel_all_);
    report_all_ = new_button(tr("Report"), page);
    connect(report_all_, &QPushButton::clicked, this, &MainWindow::report);
    bar->addWidget(report_all_);
    bar->addWidget(new_menu_button(page));
    return bar;
}

// A new drop clears the messages about an earlier one.
void MainWindow::take(const std::vector<std::string>& paths) {
    message_->hide();
    session_.take(paths);
}

// A compositor lets a window come to the front only with the token that it gave to the program
// which the user has just started. Without one it may only request attention.
void MainWindow::come_to_front(const QByteArray& activation_token) {
    if (!activation_token.isEmpty()) {
        qputenv("XDG_ACTIVATION_TOKEN", activation_token);  // where Qt looks for it
    }
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}

// Called for every change of the session; unchanged widgets cost next to nothing.
void MainWindow::refresh() {
    const int files = session_.files().rowCount();
    // One file has the large ring to itself; a list of one would be a poor sight.
    QWidget* const page = files > 1 ? list_page_ : static_cast<QWidget*>(drop_view_);
    if (pages_->currentWidget() != page) {
        pages_->setCurrentWidget(page);
        // The button that had the focus is gone, and keys are for the files now.
        if (page == list_page_) {
            file_view_->setFocus();
        }
    }
    drop_view_->set_search(session_.searching() ? DropView::Search::kRunning
                                                : DropView::Search::kNone);
    if (files <= 1) {
        drop_view_->refresh();
    }
    refresh_bar();
    refresh_actions();
    const Overall& overall = session_.overall();
    if (session_.working()) {
        taskbar_.show(overall.fraction());
        const int percent = static_cast<int>(overall.fraction() * 100);
        setWindowTitle(percent_text(percent) + QStringLiteral(" – Quorvane"));
    } else {
        taskbar_.hide();
        setWindowTitle(QStringLiteral("Quorvane"));
    }
}

// While it works: how far, and the button that stops it. Afterwards: how it ended, and the report.
void MainWindow::refresh_bar() {
    const Overall& overall = session_.overall();
    const bool working = session_.working();
    // The two buttons stand at one place and are never shown together.
    progress_->setVisible(working);
    cancel_all_->setVisible(working);
    report_all_->setVisible(!working);
    progress_->setValue(static_cast<int>(overall.fraction() * 100));
    if (!working) {
        progress_text_->setText(session_.searching() ? tr("Searching…")
                                                     : counts_text(overall.counts()));
        return;
    }
    QString text = tr("%1 of %2 files").arg(overall.counts().all()).arg(overall.files());
    if (const auto left = session_.seconds_left()) {
        text += QStringLiteral(" · ") + time_left_text(*left);
    }
    progress_text_->setText(text);
}

// Disable actions that do not apply to the selection, such as to play what failed.
void MainWindow::refresh_actions() {
    const std::vector<FileList::Id> ids = chosen();
    const auto any = [&](auto&& has) {
        return std::any_of(ids.begin(), ids.end(),
                           [&](FileList::Id id) { return has(*session_.files().row(id)); });
    };
    const bool results = any([](const Row& row) { return row.has_result(); });
    play_->setEnabled(results);
    show_in_folder_->setEnabled(results);
    report_->setEnabled(any([](const Row& row) { return row.is_measured(); }));
    retry_->setEnabled(any([](const Row& row) { return row.can_retry(); }));
    // Without a choice Escape means all of it.
    cancel_->setEnabled(ids.empty() ? session_.working() : any([](const Row& row) {
        return row.state != State::Finished;
    }));
    remove_->setEnabled(!ids.empty());
}

void MainWindow::set_drag(DragOver drag) {
    drop_view_->set_drag(drag);
    file_view_->set_drag(drag);
}

// Any drag of files is taken: what is in them is looked at after the drop, on a thread of its own.
// Looking while a large folder hangs over the window would make the pointer stick.
void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (!comes_from_here(*event) && event->mimeData()->hasUrls()) {
        event->setDropAction(Qt::CopyAction);
        event->accept();
        set_drag(DragOver::kYes);
    }
}

// Also when the user presses Escape over the window.
void MainWindow::dragLeaveEvent(QDragLeaveEvent* /*event*/) {
    set_drag(DragOver::kNo);
}

// As a copy, also where the other program proposes a move: that one would delete the recordings
// once they are handed over.
void MainWindow::dropEvent(QDropEvent* event) {
    set_drag(DragOver::kNo);
    event->setDropAction(Qt::CopyAction);
    event->accept();
    const DraggedFiles files = dragged_files(*event->mimeData());
    take(files.paths);
    if (!files.elsewhere.isEmpty()) {
        message_->tell(tr("Not a file of this computer: %1").arg(files.elsewhere.join(", ")));
    }
}

// The desktop went over to light or dark colors.
void MainWindow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && list_page_) {
        take_colors();
    }
}

// Closing waits until the workers are gone and have removed their files. The window is hidden
// first: to the user it is closed at once.
void MainWindow::closeEvent(QCloseEvent* event) {
    if (session_.working() && !may_close_) {
        event->ignore();
        dialogs_.ask_to_stop([this] { end(); });
        return;
    }
    // Gone at once for the eye, though what is running may take a moment to end.
    hide();
    session_.shut_down();
    taskbar_.hide();
    event->accept();
    QApplication::quit();
}

// The workers end before the window goes, so that no half-written output is left.
void MainWindow::end() {
    may_close_ = true;
    close();
}

// Also while the window is in front: who has gone for a coffee does not know that it is.
void MainWindow::on_ended(const Counts& counts) {
    notification_.show(tr("Quorvane has finished"), counts_text(counts), tr("Show in Folder"));
}

}  // namespace desktop
