#pragma once

#include <QAbstractListModel>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "desktop/model/row.h"

namespace desktop {

/**
 * The files of the window, in the order they came. A file has a number of its own that stays when
 * rows before it go.
 */
class FileList : public QAbstractListModel {
    Q_OBJECT
    Q_DISABLE_COPY(FileList)

  public:
    using Id = std::size_t;

    explicit FileList(QObject* parent = nullptr);
    ~FileList() override;

    int rowCount(const QModelIndex& parent = {}) const override;

    /** Display: the name; tool tip: folder and cause; accessible text: the row in one sentence. */
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    /** Results as text/uri-list, to drag them out. */
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    Qt::DropActions supportedDragActions() const override;

    /** At the end. The id is not used again, also after the row is removed. */
    Id add(Row row);
    void remove(Id id);

    /** The row of the file; nullptr when there is none. */
    const Row* row(Id id) const;

    const Row& at(int position) const { return *rows_[static_cast<std::size_t>(position)].row; }

    Id id_at(int position) const { return rows_[static_cast<std::size_t>(position)].id; }

    QModelIndex index_of(Id id) const;

    /** The file with this input; -1 when there is none. */
    int position_of_input(const std::string& input) const;

    /** Back to waiting, with a new output. */
    void restart(Id id, const std::string& output);
    // What becomes of a file; an id without a row is ignored, as its row may have been removed.
    void set_running(Id id);
    void set_fraction(Id id, double fraction);
    void set_finished(Id id, const quorvane::FileFacts& facts);

  private:
    struct Entry {
        Id id;
        std::unique_ptr<Row> row;
    };

    int position_of(Id id) const;
    Row* change(Id id);
    void changed(Id id);

    std::vector<Entry> rows_;  // by rising id
    std::unordered_map<std::string, Id> by_input_;
    Id next_ = 0;
};

}  // namespace desktop
