#include "widgets/StreamWidget.h"

#include "parent/StateText.h"

#include <QFrame>
#include <QLabel>
#include <QVBoxLayout>

#include <utility>

namespace mediaworker::widgets {

namespace {

/// Words that would rather be wide have no say in the height of the picture below them.
class OverlayLayout : public QVBoxLayout {
public:
    using QVBoxLayout::QVBoxLayout;
    [[nodiscard]] bool hasHeightForWidth() const override { return false; }
};

} // namespace

StreamWidget::StreamWidget(QWidget* parent)
    : PictureWidget([this] { return player_.frames(); }, parent), overlay_(new QFrame(this)),
      overlayText_(new QLabel(overlay_)) {
    overlay_->setObjectName(QStringLiteral("overlay"));
    overlay_->setStyleSheet(
        QStringLiteral("#overlay { background: rgba(32, 32, 32, 220); border-radius: 6px; }"
                       "#overlay QLabel { color: white; }"));
    overlayText_->setObjectName(QStringLiteral("overlayText"));
    overlayText_->setTextFormat(Qt::PlainText); // words of a server are among them
    overlayText_->setAlignment(Qt::AlignCenter);
    overlayText_->setWordWrap(true);
    auto* const inside = new QVBoxLayout(overlay_);
    inside->addWidget(overlayText_);
    auto* const layout = new OverlayLayout(this);
    layout->setSizeConstraint(QLayout::SetNoConstraint); // pictures may be smaller than words
    layout->addWidget(overlay_, 0, Qt::AlignCenter);

    // A picture that was announced belongs to a channel that goes now.
    connect(&player_, &parent::StreamPlayer::aboutToStart, this, &StreamWidget::takeNewest);
    connect(&player_, &parent::StreamPlayer::frame, this, &StreamWidget::announce);
    connect(&player_, &parent::StreamPlayer::changed, this, &StreamWidget::refresh);
    refresh();
}

StreamWidget::~StreamWidget() {
    player_.disconnect(this);
}

void StreamWidget::play(const QString& url) {
    parent::StreamJob job;
    job.url = url;
    play(job);
}

void StreamWidget::play(const parent::StreamJob& job) {
    clear();
    player_.play(job);
}

void StreamWidget::restart() {
    player_.restart();
}

void StreamWidget::stop() {
    player_.stop();
}

void StreamWidget::setPaused(bool isPaused) {
    player_.setPaused(isPaused);
}

void StreamWidget::setVolume(int percent) {
    player_.setVolume(percent);
}

void StreamWidget::setMuted(bool isMuted) {
    player_.setMuted(isMuted);
}

void StreamWidget::setOverlayShown(bool isShown) {
    isOverlayShown_ = isShown;
    refresh();
}

void StreamWidget::setIdleText(const QString& text) {
    idleText_ = text;
    refresh();
}

void StreamWidget::addToOverlay(QWidget* widget) {
    static_cast<QVBoxLayout*>(overlay_->layout())->addWidget(widget, 0, Qt::AlignCenter);
}

void StreamWidget::refresh() {
    const parent::PlaybackState now = state();
    const QString why = problem();
    const QString text = now == parent::PlaybackState::Idle
                             ? idleText_
                             : parent::overlayText(now, why, player_.untilNextAttempt());
    overlayText_->setText(text);
    overlay_->setVisible(isOverlayShown_ && !text.isEmpty());
    if (std::exchange(state_, now) != now) {
        Q_EMIT stateChanged(now);
    }
    if (std::exchange(problem_, why) != why) {
        Q_EMIT problemChanged(why);
    }
}

} // namespace mediaworker::widgets
