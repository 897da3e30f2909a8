#include "tools/view/StreamView.h"

#include "tools/playlist/PlainText.h"
#include "tools/view/Labels.h"
#include "tools/view/StreamLog.h"

#include <QContextMenuEvent>
#include <QEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>
#include <QWheelEvent>

#include <algorithm>
#include <chrono>
#include <utility>

namespace mediaworker::view {

namespace {

using parent::PlaybackState;
using parent::StreamSupervisor;
using parent::WorkerProcess;

// Long enough to be read; the words below the picture, or in the status bar, stay.
constexpr int kNoteMarginPx = 6;
constexpr std::chrono::milliseconds kNoteDuration{8000};

} // namespace

StreamView::StreamView(StreamSettings settings, QWidget* parent)
    : QWidget(parent), settings_(std::move(settings)), sound_(settings_.volumePercent, settings_.isMuted) {
    setFocusPolicy(Qt::StrongFocus);

    pictures_ = new widgets::StreamWidget;
    pictures_->installEventFilter(this);
    pictures_->setIdleText(tr("Open a stream or a file: Ctrl+O"));
    worker().setProgram(settings_.workerProgram);
    new StreamLog(stream(), this);
    if (const auto command = sound_.forNewWorker()) {
        carryOut(command);
    } else {
        player().setMuted(true);
    }
    caption_ = new ElidedLabel;
    caption_->setObjectName(QStringLiteral("caption"));
    caption_->setMargin(3);
    caption_->setAutoFillBackground(true);
    caption_->hide();
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(pictures_, 1);
    layout->addWidget(caption_);
    makeOverlay();

    connect(&stream(), &StreamSupervisor::started, this, &StreamView::onStarted);
    connect(&player(), &parent::StreamPlayer::changed, this, &StreamView::refresh);
    connect(&worker(), &WorkerProcess::soundUnavailable, this, &StreamView::tellSoundProblem);
    connect(pictures_, &widgets::StreamWidget::pictureSizeChanged, this, [this] {
        // Another stream may have been opened since.
        const bool hasSize = !pictures_->pictureSize().isEmpty();
        if (hasSize && !std::exchange(hasPicture_, true)) {
            Q_EMIT firstPicture();
        }
        refresh();
    });
    refresh();
}

StreamView::~StreamView() {
    player().disconnect(this);
    stream().disconnect(this);
    worker().disconnect(this);
}

void StreamView::makeOverlay() {
    restartButton_ = new QPushButton(style()->standardIcon(QStyle::SP_BrowserReload), tr("Start again"));
    restartButton_->setObjectName(QStringLiteral("restart"));
    restartButton_->installEventFilter(this);
    connect(restartButton_, &QPushButton::clicked, this, [this] {
        setFocus(); // the button goes
        Q_EMIT chosen();
        restart();
    });
    pictures_->addToOverlay(restartButton_);

    note_ = new QLabel(pictures_);
    note_->setObjectName(QStringLiteral("note"));
    note_->setStyleSheet(
        QStringLiteral("background: rgba(32, 32, 32, 220); color: white; border-radius: 6px; padding: 4px;"));
    note_->setTextFormat(Qt::PlainText); // words of a worker
    note_->setAttribute(Qt::WA_TransparentForMouseEvents);
    note_->hide();
    noteTimer_.setParent(this);
    noteTimer_.setObjectName(QStringLiteral("noteTimer"));
    noteTimer_.setSingleShot(true);
    noteTimer_.setInterval(kNoteDuration);
    connect(&noteTimer_, &QTimer::timeout, note_, &QWidget::hide);
}

void StreamView::tellSoundProblem() {
    const QString& problem = worker().findings().soundUnavailable;
    if (problem.isEmpty() || sound_.isMuted() || std::exchange(isSoundProblemTold_, true)) {
        return;
    }
    // A long text is cut off here, and stands below in full.
    const int widthPx = std::max(pictures_->width() - 4 * kNoteMarginPx, 0);
    note_->setText(note_->fontMetrics().elidedText(tr("No sound: %1").arg(problem), Qt::ElideRight, widthPx));
    note_->adjustSize();
    note_->move(kNoteMarginPx, kNoteMarginPx);
    note_->show();
    noteTimer_.start();
}

void StreamView::open(const QString& url, const QString& name) {
    url_ = url;
    name_ = plainText(name.isEmpty() ? streamName(url) : name);
    pictures_->clear();
    restart();
}

void StreamView::restart() {
    if (url_.isEmpty()) {
        return;
    }
    parent::StreamJob job;
    job.url = url_;
    job.proxyUrl = settings_.proxyUrl;
    job.proxyType = settings_.proxyType;
    job.flv = settings_.flv;
    job.lowLatency = settings_.hasLowLatency;
    job.sync = settings_.hasSync;
    job.sandbox = settings_.isConfined;
    player().setPolicy({.isEnabled = settings_.isReconnecting});
    player().setPaused(false);
    isUsersStart_ = true;
    player().play(job);
    isUsersStart_ = false;
}

void StreamView::goLive() {
    if (!url_.isEmpty()) {
        player().setPaused(false);
        player().restart();
    }
}

void StreamView::setLowLatency(bool hasLowLatency) {
    const bool isNew = std::exchange(settings_.hasLowLatency, hasLowLatency) != hasLowLatency;
    if (isNew && isRunning() && parent::isLive(url_)) {
        restart();
    }
}

void StreamView::onStarted() {
    hasPicture_ = false;
    isSoundProblemTold_ = isSoundProblemTold_ && !isUsersStart_;
    note_->hide();
}

void StreamView::stop() {
    player().stop();
}

bool StreamView::waitForEnd(std::chrono::milliseconds timeout) {
    return worker().waitForFinished(timeout);
}

void StreamView::setPaused(bool isPaused) {
    if (isRunning()) {
        player().setPaused(isPaused);
    }
}

void StreamView::setVolume(int percent) {
    carryOut(sound_.setPercent(percent));
}

void StreamView::stepVolume(int direction) {
    carryOut(sound_.step(direction));
}

void StreamView::setMuted(bool isMuted) {
    carryOut(sound_.setMuted(isMuted));
}

void StreamView::carryOut(const std::optional<SoundControl::Command>& command) {
    if (!command) {
        return;
    }
    if (command->kind == SoundControl::Command::Kind::StopAudio) {
        player().setMuted(true);
    } else {
        player().setVolume(command->percent);
        player().setMuted(false);
    }
    tellSoundProblem();
    Q_EMIT changed();
}

StreamStatus StreamView::status() const {
    const auto moment = std::chrono::steady_clock::now();
    StreamStatus status;
    status.state = player().state();
    status.endWords = player().problemText();
    status.untilNextAttempt = player().untilNextAttempt();
    status.soundProblem = player().soundProblem();
    status.isRecording = isRecording_;
    status.pictureSize = pictures_->pictureSize();
    status.framesPerSecond = monitor().framesPerSecond(moment);
    status.positionMs = monitor().positionMs();
    status.absoluteTimeMs = monitor().absoluteTimeMs();
    if (status.positionMs) {
        status.delayMs = monitor().delayMs(moment);
        if (parent::isLive(url_)) {
            status.behindMs = monitor().behindMs(moment);
        }
    }
    return status;
}

void StreamView::showCaption(bool isShown) {
    caption_->setVisible(isShown);
}

void StreamView::setRecording(bool isRecording) {
    if (std::exchange(isRecording_, isRecording) != isRecording) {
        refresh();
    }
}

void StreamView::setCurrent(bool isCurrent) {
    caption_->setBackgroundRole(isCurrent ? QPalette::Highlight : QPalette::Window);
    caption_->setForegroundRole(isCurrent ? QPalette::HighlightedText : QPalette::WindowText);
}

void StreamView::refresh() {
    const StreamStatus current = status();
    caption_->setText(name(), captionTail(name(), current));
    caption_->setToolTip(toolTipText(caption_->text()));

    const bool isEnded = current.state == PlaybackState::Ended;
    if (!isEnded && restartButton_->hasFocus()) {
        setFocus(); // or the next view would get it
    }
    restartButton_->setVisible(isEnded);
    Q_EMIT changed();
}

void StreamView::focusInEvent(QFocusEvent* event) {
    QWidget::focusInEvent(event);
    Q_EMIT chosen();
}

void StreamView::contextMenuEvent(QContextMenuEvent* event) {
    Q_EMIT chosen();
    Q_EMIT menuWanted(event->globalPos());
}

bool StreamView::eventFilter(QObject* watched, QEvent* event) {
    if (watched == restartButton_ && event->type() == QEvent::FocusIn) {
        Q_EMIT chosen();
    }
    if (watched == pictures_) {
        if (event->type() == QEvent::MouseButtonPress) {
            Q_EMIT chosen();
        } else if (event->type() == QEvent::MouseButtonDblClick) {
            if (static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton) {
                Q_EMIT doubleClicked();
            }
        } else if (event->type() == QEvent::Wheel) {
            wheelAngle_ += static_cast<QWheelEvent*>(event)->angleDelta().y();
            const int steps = wheelAngle_ / QWheelEvent::DefaultDeltasPerStep;
            wheelAngle_ %= QWheelEvent::DefaultDeltasPerStep;
            if (steps != 0) {
                Q_EMIT wheelTurned(steps);
            }
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace mediaworker::view
