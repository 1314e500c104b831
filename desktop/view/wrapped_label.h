#pragma once

#include <QLabel>

namespace desktop {

/** Centered plain text that breaks inside a word where it must, so that long names show whole. */
class WrappedLabel : public QLabel {
    Q_OBJECT

  public:
    explicit WrappedLabel(QWidget* parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    int heightForWidth(int width) const override;

  protected:
    void paintEvent(QPaintEvent* event) override;
};

}  // namespace desktop
