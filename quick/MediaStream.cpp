#include "quick/MediaStream.h"

#include "parent/PicturePlace.h"
#include "parent/StateText.h"

#include <QQuickWindow>
#include <QSGImageNode>
#include <QSGTexture>

#include <utility>

namespace mediaworker::quick {

namespace {

MediaStream::PlaybackState forQml(parent::PlaybackState state) {
    using From = parent::PlaybackState;
    using To = MediaStream::PlaybackState;
    switch (state) {
    case From::Idle:
        return To::Idle;
    case From::Connecting:
        return To::Connecting;
    case From::Buffering:
        return To::Buffering;
    case From::Playing:
        return To::Playing;
    case From::Paused:
        return To::Paused;
    case From::Ended:
        return To::Ended;
    }
    return To::Idle;
}

} // namespace

void registerTypes() {
    qmlRegisterType<MediaStream>("Mediaworker", 1, 0, "MediaStream");
}

MediaStream::MediaStream(QQuickItem* parent) : QQuickItem(parent) {
    setFlag(ItemHasContents);
    // A picture that was announced belongs to a channel that goes now.
    connect(&player_, &parent::StreamPlayer::aboutToStart, this, [this] {
        if (newest_.take(player_.frames())) {
            update();
        }
    });
    connect(&player_, &parent::StreamPlayer::frame, this, [this] {
        newest_.announce();
        update();
    });
    connect(&player_, &parent::StreamPlayer::changed, this, &MediaStream::refresh);
    refresh();
}

MediaStream::~MediaStream() {
    player_.disconnect(this);
}

void MediaStream::setSource(const QString& url) {
    if (std::exchange(source_, url) == url) {
        return;
    }
    Q_EMIT sourceChanged();
    newest_.clear();
    setPictureSize(newest_.image().size());
    update();
    if (isComponentComplete()) {
        play();
    }
}

void MediaStream::componentComplete() {
    QQuickItem::componentComplete();
    if (!source_.isEmpty()) {
        play();
    }
}

void MediaStream::play() {
    parent::StreamJob job;
    job.url = source_;
    job.lowLatency = hasLowLatency_;
    player_.play(job);
}

void MediaStream::restart() {
    player_.restart();
}

void MediaStream::setPaused(bool isPaused) {
    if (isPaused != player_.isPaused()) {
        player_.setPaused(isPaused);
        Q_EMIT pausedChanged();
    }
}

void MediaStream::setVolume(int percent) {
    const int before = volume();
    player_.setVolume(percent);
    if (volume() != before) {
        Q_EMIT volumeChanged();
    }
}

void MediaStream::setMuted(bool isMuted) {
    if (isMuted != player_.isMuted()) {
        player_.setMuted(isMuted);
        Q_EMIT mutedChanged();
    }
}

void MediaStream::setLowLatency(bool hasLowLatency) {
    if (std::exchange(hasLowLatency_, hasLowLatency) == hasLowLatency) {
        return;
    }
    Q_EMIT lowLatencyChanged();
    if (isComponentComplete() && player_.supervisor().worker().isRunning()) {
        play();
    }
}

void MediaStream::refresh() {
    const PlaybackState state = forQml(player_.state());
    const QString problem = player_.problemText();
    const QString text = parent::stateText(player_.state(), problem, player_.untilNextAttempt());
    const bool isNewState = std::exchange(state_, state) != state;
    const bool isNewProblem = std::exchange(problem_, problem) != problem;
    const bool isNewText = std::exchange(stateText_, text) != text;
    // Whoever hears of one finds all of them as they are now.
    if (isNewState) {
        Q_EMIT playbackStateChanged();
    }
    if (isNewProblem) {
        Q_EMIT problemChanged();
    }
    if (isNewText) {
        Q_EMIT stateTextChanged();
    }
}

void MediaStream::setPictureSize(const QSize& size) {
    if (std::exchange(pictureSize_, size) != size) {
        setImplicitSize(size.width(), size.height());
        Q_EMIT pictureSizeChanged();
    }
}

QSGNode* MediaStream::updatePaintNode(QSGNode* old, UpdatePaintNodeData* /*data*/) {
    newest_.take(player_.frames());
    const QImage& image = newest_.image();
    if (image.size() != pictureSize_) {
        // Not while the scene graph looks at the items.
        QMetaObject::invokeMethod(
            this, [this] { setPictureSize(newest_.image().size()); }, Qt::QueuedConnection);
    }
    const qreal ratio = window()->effectiveDevicePixelRatio();
    const QRectF place = parent::fitted(image.size(), size(), ratio);
    if (place.isEmpty()) {
        delete old;
        return nullptr;
    }
    auto* node = static_cast<QSGImageNode*>(old);
    const bool isNew = node == nullptr;
    if (isNew) {
        node = window()->createImageNode();
        node->setOwnsTexture(true);
    }
    if (isNew || textured_ != newest_.copies()) {
        node->setTexture(window()->createTextureFromImage(image, QQuickWindow::TextureIsOpaque));
        textured_ = newest_.copies();
    }
    node->setFiltering(place.size() * ratio == QSizeF(image.size()) ? QSGTexture::Nearest
                                                                    : QSGTexture::Linear);
    node->setRect(place);
    return node;
}

} // namespace mediaworker::quick
