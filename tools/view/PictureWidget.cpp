#include "tools/view/PictureWidget.h"

#include "tools/view/Placement.h"

#include <QPaintEvent>
#include <QPainter>

#include <chrono>
#include <cstring>
#include <utility>

namespace mediaworker::view {

namespace {

// Longer than a worker converts a picture, and short enough for a window that nine stopped workers share.
constexpr std::chrono::milliseconds kPatience{60};

} // namespace

PictureWidget::PictureWidget(Channel channel, QWidget* parent)
    : QWidget(parent), channel_(std::move(channel)) {
    setAttribute(Qt::WA_OpaquePaintEvent); // every pixel is painted: no background first
    setMinimumSize(16, 9);
}

void PictureWidget::announce() {
    isAnnounced_ = true;
    if (image_.isNull()) {
        update();
    } else {
        update(pictureRect());
    }
}

void PictureWidget::clear() {
    isAnnounced_ = false;
    isPainted_ = true;
    image_ = {};
    update();
}

void PictureWidget::takeNewest() {
    if (!isAnnounced_) {
        return;
    }
    parent::FrameChannel* const channel = channel_();
    if (channel == nullptr) {
        isAnnounced_ = false;
        return;
    }
    const QSize before = image_.size();
    const bool isTaken = channel->withPicture(
        [this](const std::uint8_t* bgra, int width, int height) {
            if (image_.size() != QSize(width, height) || !image_.isDetached()) {
                image_ = QImage(width, height, QImage::Format_RGB32);
            }
            if (!image_.isNull()) {
                // Rows of 32-bit pixels have no padding on either side.
                std::memcpy(image_.bits(), bgra, static_cast<std::size_t>(image_.sizeInBytes()));
            }
        },
        kPatience);
    isAnnounced_ = false;
    if (!isTaken || image_.isNull()) {
        return; // the next announcement tries again
    }
    ++copies_;
    isPainted_ = false;
    if (image_.size() != before) {
        update();
        Q_EMIT pictureSizeChanged();
    }
}

QImage PictureWidget::picture() {
    takeNewest();
    return image_;
}

QRect PictureWidget::pictureRect() const {
    return fitted(image_.size(), size());
}

void PictureWidget::paintEvent(QPaintEvent* event) {
    takeNewest();
    QPainter painter(this);
    const QRect place = pictureRect();
    for (const QRect& rect : event->region().subtracted(place)) {
        painter.fillRect(rect, Qt::black);
    }
    if (image_.isNull()) {
        return;
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform, place.size() != image_.size());
    painter.drawImage(place, image_);
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

} // namespace mediaworker::view
