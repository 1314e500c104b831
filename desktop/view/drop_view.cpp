#include "desktop/view/drop_view.h"

#include <QHBoxLayout>
#include <QPainter>
#include <QStyle>
#include <QVBoxLayout>

#include "desktop/intake/paths.h"
#include "desktop/model/words.h"
#include "desktop/view/colors.h"
#include "desktop/view/flat_style.h"
#include "desktop/view/wrapped_label.h"

namespace desktop {
namespace {

// In logical pixels.
constexpr int kFrameInset = 16;
constexpr double kCornerRadius = 8;
constexpr int kSpacing = 8;

/** What its buttons take their colors from, whatever the desktop's. */
QPalette dark_palette() {
    QPalette colors(kDarkButton, kDarkFill);
    colors.setColor(QPalette::ButtonText, kDarkText);
    colors.setColor(QPalette::Base, kDarkFill);
    return colors;
}

/** By the palette: a style sheet on each label would be parsed again with every file. */
void set_color(QWidget& label, const QColor& color) {
    QPalette colors = label.palette();
    colors.setColor(QPalette::WindowText, color);
    label.setPalette(colors);
}

}  // namespace

DropView::DropView(FileList& files, QWidget* parent) : QWidget(parent), files_(files) {
    setAccessibleName(tr("Drop files here"));
    setStyleSheet(flat_style(dark_palette(), kArc));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(3 * kFrameInset, 3 * kFrameInset, 3 * kFrameInset,
                               2 * kFrameInset + kSpacing);
    column->setSpacing(kSpacing);
    // The stretches above and below keep the ring in the middle; the ring itself may grow up to its
    // usual size and gives way first when the window is low.
    column->addStretch();
    ring_ = new Ring(this);
    ring_->setAccessibleName(tr("Progress"));
    column->addWidget(ring_, 8);
    column->addSpacing(kSpacing);
    add_texts(column);
    column->addSpacing(kSpacing);
    column->addLayout(new_buttons());
    column->addStretch();

    connect(ring_, &Ring::double_clicked, this, &DropView::play);
    ring_->set_drag_source([this]() -> QMimeData* {
        // Null where there is nothing to drag: then no drag begins.
        const auto id = file();
        return id && files_.row(*id)->has_result() ? files_.mimeData({files_.index_of(*id)})
                                                   : nullptr;
    });
    refresh();
}

// Name, state and figures below each other. A label without text keeps its line, so that the ring
// stays where it is from the drop to the result.
void DropView::add_texts(QBoxLayout* column) {
    name_ = add_label(column, kDarkText);
    QFont title = name_->font();
    title.setPointSizeF(title.pointSizeF() * 1.35);
    name_->setFont(title);
    state_ = add_label(column, kDarkSoftText);
    figures_ = add_label(column, kDarkText);
}

// All of them are there from the start, and refresh() shows those that fit: a button that keeps
// its place keeps the keyboard's focus too.
QLayout* DropView::new_buttons() {
    auto* row = new QHBoxLayout;
    row->setSpacing(kSpacing);
    row->addStretch();
    choose_ = add_button(tr("Choose Files…"), &DropView::choose);
    cancel_ = add_button(tr("Cancel"), &DropView::cancel);
    retry_ = add_button(tr("Try Again"), &DropView::retry);
    play_ = add_button(tr("Play"), &DropView::play);
    folder_ = add_button(tr("Show in Folder"), &DropView::show_in_folder);
    report_ = add_button(tr("Report"), &DropView::report);
    for (QPushButton* button : {choose_, cancel_, retry_, play_, folder_, report_}) {
        row->addWidget(button);
    }
    row->addStretch();
    return row;
}

QPushButton* DropView::add_button(const QString& text, void (DropView::*signal)()) {
    auto* button = new QPushButton(text, this);
    button->setAutoDefault(true);  // Return presses it as well as Space
    connect(button, &QPushButton::clicked, this, signal);
    return button;
}

QLabel* DropView::add_label(QBoxLayout* column, const QColor& color) {
    auto* label = new WrappedLabel(this);
    set_color(*label, color);
    column->addWidget(label);
    return label;
}

void DropView::set_corner(QWidget* button) {
    corner_ = button;
    button->adjustSize();
}

void DropView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (corner_) {
        const QSize size = corner_->sizeHint();
        const QRect place(width() - kFrameInset - kSpacing - size.width(), kFrameInset + kSpacing,
                          size.width(), size.height());
        // In no layout, or the ring would have to leave room for it.
        corner_->setGeometry(QStyle::visualRect(layoutDirection(), rect(), place));
    }
}

// The whole view answers to a drag, as the whole window takes the drop.
void DropView::set_drag(DragOver drag) {
    drag_ = drag;
    update();
}

void DropView::set_search(Search search) {
    if (search != search_) {
        search_ = search;
        refresh();
    }
}

std::optional<FileList::Id> DropView::file() const {
    return files_.rowCount() == 1 ? std::optional(files_.id_at(0)) : std::nullopt;
}

// All that the view shows is decided here, whatever has changed.
void DropView::refresh() {
    const auto id = file();
    const Row* row = id ? files_.row(*id) : nullptr;
    const bool finished = row && row->state == State::Finished;
    // Asked for before buttons go: Qt moves the focus on from one that is hidden.
    const auto* focused = qobject_cast<QPushButton*>(focusWidget());
    choose_->setVisible(!row);
    cancel_->setVisible(row && !finished);
    retry_->setVisible(row && row->can_retry());
    play_->setVisible(row && row->has_result());
    folder_->setVisible(row && row->has_result());
    report_->setVisible(row && row->is_measured());
    if (row) {
        show_file(*row);
    } else {
        show_empty();
    }
    if (focused && focused->isHidden()) {
        keep_focus();
    }
}

// A button that is hidden loses the focus, and Qt would give it to the menu in the corner: a person
// who presses Enter after the end wants to play the result.
void DropView::keep_focus() {
    for (QPushButton* button : {choose_, cancel_, retry_, play_}) {
        if (!button->isHidden()) {
            return button->setFocus();
        }
    }
}

// Also while a drop is searched: a big folder on a network share takes its time, and a window that
// says nothing looks as if the drop had failed.
void DropView::show_empty() {
    ring_->set_mark(Mark::Bars);
    ring_->setValue(0);
    name_->setText(search_ == Search::kRunning ? tr("Searching…") : tr("Drop recordings here"));
    set_color(*state_, kDarkSoftText);
    state_->setText(tr("Files or whole folders. Each recording gets a leveled copy beside it."));
    figures_->clear();
}

void DropView::show_file(const Row& row) {
    const bool finished = row.state == State::Finished;
    const bool good = row.has_result();
    const QColor alarm = failure_color(dark_palette());
    ring_->set_mark(!finished ? Mark::None
                    : good    ? Mark::Check
                              : Mark::Cross,
                    row.failed() ? alarm : kDarkTrack);
    // A failure empties the ring: how far it got says nothing about the file.
    ring_->setValue(!finished ? static_cast<int>(row.fraction * 100) : good ? 100 : 0);
    name_->setText(shown_name(row.input));
    state_->setText(state_text(row));
    set_color(*state_, row.failed() ? alarm : kDarkSoftText);
    const QString loudness = loudness_text(row);
    figures_->setText(loudness.isEmpty() ? QString()
                                         : loudness + QStringLiteral("\n") + range_text(row));
}

void DropView::paintEvent(QPaintEvent* /*event*/) {
    constexpr double kDash[] = {5, 3};  // on, off
    QPainter painter(this);
    // Lighter and with a frame in the arc's color: the change has to be seen beside the pointer and
    // the picture of the files, which hide the middle.
    const bool under_drag = drag_ == DragOver::kYes;
    painter.fillRect(rect(), under_drag ? kDarkFillUnderDrag : kDarkFill);
    painter.setRenderHint(QPainter::Antialiasing);
    QPen pen(under_drag ? kArc : QColor::fromRgbF(1, 1, 1, 0.75F));
    pen.setDashPattern({kDash[0], kDash[1]});
    painter.setPen(pen);
    // Half a pixel in, so that a line of one pixel falls on a row of them.
    painter.drawRoundedRect(QRectF(rect()).adjusted(kFrameInset + 0.5, kFrameInset + 0.5,
                                                    -kFrameInset - 0.5, -kFrameInset - 0.5),
                            kCornerRadius, kCornerRadius);
}

}  // namespace desktop
