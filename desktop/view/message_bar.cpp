#include "desktop/view/message_bar.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QToolButton>

namespace desktop {

MessageBar::MessageBar(QWidget* parent) : QFrame(parent) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(12, 6, 6, 6);
    text_ = new QLabel(this);
    text_->setTextFormat(Qt::PlainText);
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

void MessageBar::tell(const QString& text) {
    text_->setText(text);
    show();
    QAccessibleEvent alert(text_, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
}

}  // namespace desktop
