#include "desktop/view/message_bar.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QToolButton>

namespace desktop {

MessageBar::MessageBar(QWidget* parent) : QFrame(parent) {
    // The text in the middle of its line's height, the button at the top: a long text of several
    // lines would take it down otherwise, away from where it was a moment ago.
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(12, 6, 6, 6);
    text_ = new QLabel(this);
    text_->setTextFormat(Qt::PlainText);  // file names stand in it
    text_->setWordWrap(true);
    row->addWidget(text_, 1);
    auto* close = new QToolButton(this);
    close->setAutoRaise(true);
    close->setText(QStringLiteral("✕"));
    close->setAccessibleName(tr("Close this message"));
    connect(close, &QToolButton::clicked, this, &QWidget::hide);
    row->addWidget(close, 0, Qt::AlignTop);
    hide();
}

// A message replaces the one before it.
void MessageBar::tell(const QString& text) {
    text_->setText(text);
    show();
    // A screen reader says it at once. The focus stays where it is: the message wants no answer.
    QAccessibleEvent alert(text_, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
}

}  // namespace desktop
