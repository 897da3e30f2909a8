#include "tools/view/Labels.h"

#include <QPainter>
#include <QStyle>

#include <algorithm>

namespace mediaworker::view {

QString toolTipText(const QString& plain) {
    return plain.isEmpty() ? QString() : QStringLiteral("<span>%1</span>").arg(plain.toHtmlEscaped());
}

ElidedLabel::ElidedLabel(QWidget* parent) : QLabel(parent) {
    setTextFormat(Qt::PlainText);
    // A long text is cut off; it must not make the window wider.
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
}

void ElidedLabel::setText(const QString& head, const QString& tail) {
    head_ = head;
    tail_ = tail;
    QLabel::setText(head + tail);
}

QString ElidedLabel::shownText() const {
    const int widthPx = contentsRect().width() - 2 * margin();
    const QFontMetrics metrics = fontMetrics();
    const int headPx = std::max(widthPx - metrics.horizontalAdvance(tail_), widthPx / 3);
    return metrics.elidedText(metrics.elidedText(head_, Qt::ElideRight, headPx) + tail_, Qt::ElideRight,
                              widthPx);
}

void ElidedLabel::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    const int margins = margin();
    style()->drawItemText(&painter, contentsRect().adjusted(margins, margins, -margins, -margins),
                          static_cast<int>(Qt::AlignLeft | Qt::AlignVCenter), palette(), isEnabled(),
                          shownText(), foregroundRole());
}

} // namespace mediaworker::view
