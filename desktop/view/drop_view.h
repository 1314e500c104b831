#pragma once

#include <QBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QWidget>
#include <optional>

#include "desktop/model/file_list.h"
#include "desktop/view/drag_over.h"
#include "desktop/view/ring.h"

namespace desktop {

/**
 * The dark view with the dashed frame: invites to drop files while the list is empty, and follows
 * the one file while there is one. It is dark on every desktop, as a stage for the ring; its colors
 * are its own and do not follow the palette.
 */
class DropView : public QWidget {
    Q_OBJECT

  public:
    explicit DropView(FileList& files, QWidget* parent = nullptr);

    /** The view is lighter while a drag of files hangs over the window. */
    void set_drag(DragOver drag);

    /** Whether the empty list says that a search of dropped folders is under way. */
    enum class Search { kNone, kRunning };
    void set_search(Search search);

    /** A small button for the upper corner at the end of a line. */
    void set_corner(QWidget* button);

    /** Reads the list again: shows what its first row tells, and the buttons that fit. */
    void refresh();

    /** The list's only file; nothing when there are none or several. */
    std::optional<FileList::Id> file() const;

  Q_SIGNALS:
    // The buttons; the window decides what they do.
    void choose();
    void cancel();
    void play();
    void show_in_folder();
    void report();
    void retry();

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    // Parts of the constructor, then of refresh().
    void add_texts(QBoxLayout* column);
    QLayout* new_buttons();
    QPushButton* add_button(const QString& text, void (DropView::*signal)());
    QLabel* add_label(QBoxLayout* column, const QColor& color);
    void show_empty();
    void keep_focus();
    void show_file(const Row& row);

    FileList& files_;
    DragOver drag_ = DragOver::kNo;
    Search search_ = Search::kNone;
    QWidget* corner_ = nullptr;  // in no layout: it lies over the frame's corner
    Ring* ring_ = nullptr;
    QLabel* name_ = nullptr;
    QLabel* state_ = nullptr;
    QLabel* figures_ = nullptr;  // loudness and range, a line each
    QPushButton* choose_ = nullptr;
    QPushButton* cancel_ = nullptr;
    QPushButton* play_ = nullptr;
    QPushButton* folder_ = nullptr;
    QPushButton* report_ = nullptr;
    QPushButton* retry_ = nullptr;
};

}  // namespace desktop
