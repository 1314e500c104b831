#include "desktop/view/file_view.h"

#include <QDrag>
#include <QMimeData>
#include <QPainter>
#include <QResizeEvent>
#include <QUrl>
#include <algorithm>
#include <memory>

#include "desktop/view/row_delegate.h"

namespace desktop {

FileView::FileView(FileList& files, QWidget* parent) : QListView(parent), files_(files) {
    auto* delegate = new RowDelegate(this);
    setModel(&files);
    setItemDelegate(delegate);
    setAccessibleName(tr("Files"));
    setFrameShape(QFrame::NoFrame);
    // Rows are as high as their texts, so a step of the wheel cannot be a row.
    setResizeMode(QListView::Adjust);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setContextMenuPolicy(Qt::ActionsContextMenu);
    setMouseTracking(true);  // for the shade under the pointer
    setDragEnabled(true);
    setDragDropMode(QAbstractItemView::DragOnly);
    viewport()->setAcceptDrops(false);  // the window takes drops everywhere
    connect(this, &QAbstractItemView::activated, this,
            [this](const QModelIndex& index) { Q_EMIT play(files_.id_at(index.row())); });
    connect(delegate, &RowDelegate::button_clicked, this, [this](const QModelIndex& index) {
        Q_EMIT row_button_clicked(files_.id_at(index.row()));
    });
}

// The selection model lists rows in the order they were clicked.
std::vector<FileList::Id> FileView::selected() const {
    std::vector<FileList::Id> ids;
    for (const QModelIndex& index : selectionModel()->selectedRows()) {
        ids.push_back(files_.id_at(index.row()));
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

void FileView::set_drag(DragOver drag) {
    drag_ = drag;
    viewport()->update();
}

void FileView::paintEvent(QPaintEvent* event) {
    QListView::paintEvent(event);
    // Over the rows: they fill the view, so that a lighter ground would not be seen.
    if (drag_ == DragOver::kYes) {
        QPainter painter(viewport());
        painter.setPen(QPen(palette().color(QPalette::Highlight), 2, Qt::DashLine));
        painter.drawRect(viewport()->rect().adjusted(4, 4, -5, -5));
    }
}

// QListView would lay out every row again, which measures all their texts: with two hundred files
// that is most of the window's processor time. So its base class repaints the row, and the layout
// is done again only where a row has grown or shrunk, as a cause may take more lines than the word
// that stood there. Progress names its role and never changes the height.
void FileView::dataChanged(const QModelIndex& first,
                           const QModelIndex& last,
                           const QList<int>& roles) {
    QAbstractItemView::dataChanged(first, last, roles);  // NOLINT(bugprone-parent-virtual-call)
    if (roles.isEmpty() && sizeHintForIndex(first).height() != visualRect(first).height()) {
        scheduleDelayedItemsLayout();
    }
}

// The width decides in how many lines a name wraps, but QListView looks at the height alone. It
// also changes when the scroll bar comes.
void FileView::resizeEvent(QResizeEvent* event) {
    QListView::resizeEvent(event);
    if (event->size().width() != event->oldSize().width()) {
        scheduleDelayedItemsLayout();
    }
}

// The results that are selected, under a small picture that does not hide the place of the drop.
void FileView::startDrag(Qt::DropActions actions) {
    QModelIndexList indexes = selectionModel()->selectedRows();
    std::unique_ptr<QMimeData> results(files_.mimeData(indexes));
    if (results->urls().isEmpty()) {
        return;
    }
    auto* drag = new QDrag(this);
    drag->setPixmap(windowIcon().pixmap(QSize(48, 48), devicePixelRatioF()));
    drag->setMimeData(results.release());
    drag->exec(actions, Qt::CopyAction);
}

}  // namespace desktop
