#pragma once

#include <QLabel>
#include <QMenu>
#include <QProgressBar>
#include <QStackedLayout>
#include <QToolButton>
#include <QWidget>
#include <string>
#include <vector>

#include "desktop/session/session.h"
#include "desktop/system/notification.h"
#include "desktop/system/taskbar.h"
#include "desktop/view/dialogs.h"
#include "desktop/view/drop_view.h"
#include "desktop/view/file_view.h"
#include "desktop/view/message_bar.h"

namespace desktop {

/**
 * The window: the drop view while there is one file or none, the list and a bar under it when there
 * are more. Takes drops everywhere and tells the desktop how far the work is.
 *
 * It keeps no state of the work: on each signal of the session, refresh() reads the whole state, so
 * that no order of events can leave a widget out of date.
 */
class MainWindow : public QWidget {
    Q_OBJECT

  public:
    MainWindow();

    Session& session() { return session_; }

    /** Files from elsewhere: the command line or another start. */
    void take(const std::vector<std::string>& paths);

    /** To the front, with the token that another start passed on (empty: none). */
    void come_to_front(const QByteArray& activation_token);

    /** Stops the work without a question and closes. */
    void end();

  protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    /** Parts of the constructor. */
    void connect_views();
    void add_actions();
    void fill_menu();
    QAction* add_action(const QString& text, const QKeySequence& key, void (MainWindow::*slot)());
    QWidget* new_list_page();
    QLayout* new_bar(QWidget* page);
    QToolButton* new_menu_button(QWidget* parent);
    /** The style for the palette of now. */
    void take_colors();

    /** Updates the window, then its two parts, from the session. */
    void refresh();
    // The bar under the list, and which commands apply to the selection.
    void refresh_bar();
    void refresh_actions();
    void set_drag(DragOver drag);

    // The user's commands. Those for files act on the selected ones.
    void choose_files();
    void choose_folder();
    void paste();
    void cancel();
    void remove();
    void play();
    void show_in_folder();
    void report();
    void retry();
    void about();
    void play_file(FileList::Id id);
    void on_row_button(FileList::Id id);
    void on_not_audio(const std::vector<std::string>& paths);
    void on_ended(const Counts& counts);

    /** The selected files; on the drop view the only one. */
    std::vector<FileList::Id> chosen() const;

    /** Paths of those that have one. */
    std::vector<std::string> chosen_results() const;

    Dialogs dialogs_;
    Session session_;
    Notification notification_;
    Taskbar taskbar_;
    QStackedLayout* pages_;  // the drop view or the list page
    MessageBar* message_;
    DropView* drop_view_;
    QWidget* list_page_ = nullptr;  // file_view_ and the bar under it
    FileView* file_view_;
    // In the bar under the list.
    QLabel* progress_text_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QPushButton* cancel_all_ = nullptr;
    QPushButton* report_all_ = nullptr;
    QMenu* menu_ = nullptr;
    // For the chosen files; the list's context menu.
    QAction* play_ = nullptr;
    QAction* show_in_folder_ = nullptr;
    QAction* report_ = nullptr;
    QAction* retry_ = nullptr;
    QAction* cancel_ = nullptr;
    QAction* remove_ = nullptr;
    bool may_close_ = false;  // the user has said that the work may be stopped
};

}  // namespace desktop
