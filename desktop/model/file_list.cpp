#include "desktop/model/file_list.h"

#include <QMimeData>
#include <QUrl>
#include <algorithm>

#include "desktop/intake/paths.h"
#include "desktop/model/words.h"

/*
 * A row has a number that it keeps for as long as it lives, and a position that changes when others
 * go. Everything outside a view speaks of numbers: signals come late, and a position may mean
 * another file by then.
 */

namespace desktop {

FileList::FileList(QObject* parent) : QAbstractListModel(parent) {}

FileList::~FileList() = default;

int FileList::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant FileList::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) {
        return {};
    }
    const Row& row = at(index.row());
    switch (role) {
        case Qt::DisplayRole:
            // For searching by typing; the delegate paints the rows.
            return shown_name(row.input);
        case Qt::ToolTipRole:
            return tool_tip(row);
        case Qt::AccessibleTextRole:
            return accessible_text(row);
        default:
            return {};
    }
}

Qt::ItemFlags FileList::flags(const QModelIndex& index) const {
    Qt::ItemFlags flags = QAbstractListModel::flags(index) | Qt::ItemNeverHasChildren;
    if (index.isValid() && at(index.row()).has_result()) {
        // The result is dragged, so that there must be one.
        flags |= Qt::ItemIsDragEnabled;
    }
    return flags;
}

// What every file manager and player takes; the bytes of the path go in as they are.
QStringList FileList::mimeTypes() const {
    return {QStringLiteral("text/uri-list")};
}

// Files without a result are left out of a drag. The caller owns the data, as Qt has it.
QMimeData* FileList::mimeData(const QModelIndexList& indexes) const {
    QList<QUrl> urls;
    for (const QModelIndex& index : indexes) {
        if (at(index.row()).has_result()) {
            urls.append(to_url(at(index.row()).output));
        }
    }
    auto* data = new QMimeData;
    data->setUrls(urls);
    return data;
}

// A result that is dragged out stays where it is: a move would take it from beside its recording,
// and the row's buttons would lead nowhere.
Qt::DropActions FileList::supportedDragActions() const {
    return Qt::CopyAction;
}

FileList::Id FileList::add(Row row) {
    const Id id = next_++;
    const int position = rowCount();
    beginInsertRows({}, position, position);
    by_input_[row.input] = id;
    rows_.push_back({id, std::make_unique<Row>(std::move(row))});
    endInsertRows();
    return id;
}

void FileList::remove(Id id) {
    const int position = position_of(id);
    if (position < 0) {
        return;
    }
    beginRemoveRows({}, position, position);
    by_input_.erase(at(position).input);
    rows_.erase(rows_.begin() + position);
    endRemoveRows();
}

const Row* FileList::row(Id id) const {
    const int position = position_of(id);
    return position < 0 ? nullptr : &at(position);
}

QModelIndex FileList::index_of(Id id) const {
    const int position = position_of(id);
    return position < 0 ? QModelIndex() : index(position);
}

int FileList::position_of_input(const std::string& input) const {
    const auto found = by_input_.find(input);
    return found == by_input_.end() ? -1 : position_of(found->second);
}

void FileList::restart(Id id, const std::string& output) {
    if (Row* row = change(id)) {
        row->output = output;
        row->state = State::Waiting;
        row->fraction = 0;
        // Of the last try: a row that waits shows no old numbers.
        row->facts = {};
        changed(id);
    }
}

void FileList::set_running(Id id) {
    if (Row* row = change(id)) {
        row->state = State::Running;
        changed(id);
    }
}

void FileList::set_fraction(Id id, double fraction) {
    if (Row* row = change(id)) {
        row->fraction = fraction;
        // The words change, the height does not: a view need not lay the row out again.
        const QModelIndex index = index_of(id);
        Q_EMIT dataChanged(index, index, {Qt::AccessibleTextRole});
    }
}

void FileList::set_finished(Id id, const quorvane::FileFacts& facts) {
    if (Row* row = change(id)) {
        row->state = State::Finished;
        row->facts = facts;
        changed(id);
    }
}

// Numbers rise and rows keep their order, so a binary search finds a row without an index that
// every removal would have to shift.
int FileList::position_of(Id id) const {
    const auto found =
        std::lower_bound(rows_.begin(), rows_.end(), id,
                         [](const Entry& entry, Id wanted) { return entry.id < wanted; });
    return found == rows_.end() || found->id != id ? -1 : static_cast<int>(found - rows_.begin());
}

Row* FileList::change(Id id) {
    const int position = position_of(id);
    return position < 0 ? nullptr : rows_[static_cast<std::size_t>(position)].row.get();
}

void FileList::changed(Id id) {
    const QModelIndex index = index_of(id);
    Q_EMIT dataChanged(index, index);
}

}  // namespace desktop
