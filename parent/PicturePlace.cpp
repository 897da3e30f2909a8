#include "parent/PicturePlace.h"

namespace mediaworker::parent {

QRect fitted(const QSize& picture, const QSize& area) {
    if (picture.isEmpty() || area.isEmpty()) {
        return {};
    }
    const QSize size = picture.scaled(area, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
    return {QPoint((area.width() - size.width()) / 2, (area.height() - size.height()) / 2), size};
}

QRectF fitted(const QSize& picture, const QSizeF& area, qreal ratio) {
    if (!(ratio > 0)) {
        return {};
    }
    const QRect place = fitted(picture, (area * ratio).toSize());
    return {QPointF(place.topLeft()) / ratio, QSizeF(place.size()) / ratio};
}

} // namespace mediaworker::parent
