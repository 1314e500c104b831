#pragma once

#include <QListView>
#include <vector>

#include "desktop/model/file_list.h"
#include "desktop/view/drag_over.h"

namespace desktop {

/**
 * The list of files. Keys and mouse trigger the window's actions; its context menu is the
 * actions that the window adds to it.
 */
class FileView : public QListView {
    Q_OBJECT

  public:
    explicit FileView(FileList& files, QWidget* parent = nullptr);

    const FileList& files() const { return files_; }

    /** Draws a frame over the rows while a drag of files hangs over the window. */
    void set_drag(DragOver drag);

    /** In the list's order. */
    std::vector<FileList::Id> selected() const;

  Q_SIGNALS:
    // A double click on a row, or on the button at its end.
    void play(desktop::FileList::Id id);
    void row_button_clicked(desktop::FileList::Id id);

  protected:
    /** Changes that name their roles keep the row's height. */
    void dataChanged(const QModelIndex& first,
                     const QModelIndex& last,
                     const QList<int>& roles) override;
    void resizeEvent(QResizeEvent* event) override;
    void startDrag(Qt::DropActions actions) override;
    void paintEvent(QPaintEvent* event) override;

  private:
    FileList& files_;
    DragOver drag_ = DragOver::kNo;
};

}  // namespace desktop
