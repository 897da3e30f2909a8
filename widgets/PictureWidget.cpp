#include "widgets/PictureWidget.h"

#include "parent/FrameChannel.h"
#include "parent/PicturePlace.h"

#include <QPaintEvent>
#include <QPainter>
#include <QtMath>

#include <utility>

namespace mediaworker::widgets {

namespace {

/// Of what is painted on, which need not be the widget's screen.
qreal pixelsPerUnit(const QPainter& painter) {
    const QTransform& toPixels = painter.deviceTransform();
    const bool isPlain = toPixels.type() <= QTransform::TxScale && toPixels.m11() > 0;
    return isPlain ? toPixels.m11() : painter.device()->devicePixelRatioF();
}

} // namespace

PictureWidget::PictureWidget(Channel channel, QWidget* parent)
    : QWidget(parent), channel_(std::move(channel)) {
    setAttribute(Qt::WA_OpaquePaintEvent); // every pixel is painted: no background first
    setMinimumSize(16, 9);
}

void PictureWidget::announce() {
    newest_.announce();
    if (newest_.image().isNull()) {
        update();
    } else {
        update(pictureRect());
    }
}

void PictureWidget::clear() {
    isPainted_ = true;
    newest_.clear();
    update();
}

void PictureWidget::takeNewest() {
    const QSize before = pictureSize();
    if (!newest_.take(channel_())) {
        return;
    }
    isPainted_ = false;
    if (pictureSize() != before) {
        update();
        // While one is painted is no moment to move widgets.
        QMetaObject::invokeMethod(this, &PictureWidget::pictureSizeChanged, Qt::QueuedConnection);
    }
}

QImage PictureWidget::picture() {
    takeNewest();
    return newest_.image();
}

QRect PictureWidget::pictureRect() const {
    return parent::fitted(pictureSize(), QSizeF(size()), devicePixelRatioF()).toAlignedRect();
}

void PictureWidget::paintEvent(QPaintEvent* event) {
    takeNewest();
    QPainter painter(this);
    const QImage& image = newest_.image();
    const qreal ratio = pixelsPerUnit(painter);
    const QRectF place = parent::fitted(image.size(), QSizeF(size()), ratio);
    // What the picture covers in part is black below it.
    const QRect covered(QPoint(qCeil(place.left()), qCeil(place.top())),
                        QPoint(qFloor(place.right()) - 1, qFloor(place.bottom()) - 1));
    for (const QRect& rect : event->region().subtracted(covered)) {
        painter.fillRect(rect, Qt::black);
    }
    if (image.isNull()) {
        return;
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform, place.size() * ratio != QSizeF(image.size()));
    painter.drawImage(place, image);
    if (!std::exchange(isPainted_, true)) {
        lastShownAt_ = std::chrono::steady_clock::now();
        firstShownAt_ = shown_ == 0 ? lastShownAt_ : firstShownAt_;
        ++shown_;
    }
}

double PictureWidget::shownPerSecond() const {
    const std::chrono::duration<double> seconds = lastShownAt_ - firstShownAt_;
    return shown_ < 2 || seconds.count() <= 0 ? 0 : static_cast<double>(shown_ - 1) / seconds.count();
}

} // namespace mediaworker::widgets
