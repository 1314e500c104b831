#pragma once

#include <QStyledItemDelegate>

namespace desktop {

struct Row;

/**
 * Paints a file of the list: ring, name, state in words, loudness and range, and at the end a small
 * button that cancels the file or shows its result in the folder. Names and causes wrap, so that
 * they are shown whole.
 */
class RowDelegate : public QStyledItemDelegate {
    Q_OBJECT

  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter,
               const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool helpEvent(QHelpEvent* event,
                   QAbstractItemView* view,
                   const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;

    /** Where the row's small button is, mirrored for a language that reads from the right, in the
     * coordinates of the row's rectangle. */
    static QRect button_rect(const QRect& row, Qt::LayoutDirection direction);

  Q_SIGNALS:
    /** On release, as buttons do: a press that slides off does nothing. */
    void button_clicked(const QModelIndex& index);

  protected:
    bool editorEvent(QEvent* event,
                     QAbstractItemModel* model,
                     const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;
};

}  // namespace desktop
