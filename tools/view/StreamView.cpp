#include "tools/view/StreamView.h"

#include "tools/files/Address.h"
#include "tools/playlist/PlainText.h"
#include "tools/view/Labels.h"
#include "tools/view/PictureWidget.h"
#include "tools/view/StreamLog.h"

#include <QContextMenuEvent>
#include <QEvent>
#include <QFrame>
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

constexpr std::chrono::milliseconds kRefreshInterval{250};
// Long enough to be read; the words below the picture, or in the status bar, stay.
constexpr int kNoteMarginPx = 6;
constexpr std::chrono::milliseconds kNoteDuration{8000};

std::chrono::steady_clock::time_point now() {
    return std::chrono::steady_clock::now();
}

} // namespace

StreamView::StreamView(StreamSettings settings, QWidget* parent)
    : QWidget(parent), settings_(std::move(settings)), sound_(settings_.volumePercent, settings_.isMuted) {
    setFocusPolicy(Qt::StrongFocus);
    worker().setProgram(settings_.workerProgram);
    new StreamLog(stream_, this);

    pictures_ = new PictureWidget([this] { return stream_.frames(); });
    pictures_->installEventFilter(this);
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

    // A picture that was announced belongs to a channel that goes now.
    connect(&stream_, &StreamSupervisor::aboutToStart, this, [this] { pictures_->takeNewest(); });
    connect(&stream_, &StreamSupervisor::started, this, &StreamView::onStarted);
    connect(&stream_, &StreamSupervisor::waiting, this, [this](const QString& why) { end(why); });
    connect(&stream_, &StreamSupervisor::ended, this, [this](const QString& why) {
        refreshTimer_.stop();
        end(why);
    });
    connect(&worker(), &WorkerProcess::connected, this, [this] {
        monitor_.connected();
        refresh();
    });
    connect(&worker(), &WorkerProcess::frame, this, [this](qint64 ptsMs) {
        const bool wasPlaying = monitor_.state(now()) == PlaybackState::Playing;
        monitor_.frame(now(), ptsMs);
        pictures_->announce();
        if (!wasPlaying) {
            refresh();
        }
    });
    connect(&worker(), &WorkerProcess::absoluteTime, this,
            [this](qint64 value) { monitor_.absoluteTime(value); });
    connect(&worker(), &WorkerProcess::fragment, this,
            [this](qint64 position, qint64 duration) { monitor_.fragment(position, duration); });
    connect(&worker(), &WorkerProcess::soundUnavailable, this, [this] {
        tellSoundProblem();
        refresh();
    });
    // The size comes with the first picture and while one is painted: no moment to move widgets.
    connect(
        pictures_, &PictureWidget::pictureSizeChanged, this,
        [this] {
            // Another stream may have been opened since.
            const bool hasSize = !pictures_->pictureSize().isEmpty();
            if (hasSize && !std::exchange(hasPicture_, true)) {
                Q_EMIT firstPicture();
            }
            refresh();
        },
        Qt::QueuedConnection);
    connect(&refreshTimer_, &QTimer::timeout, this, &StreamView::refresh);
    refresh();
}

StreamView::~StreamView() {
    stream_.disconnect(this);
    worker().disconnect(this);
}

void StreamView::makeOverlay() {
    overlay_ = new QFrame;
    overlay_->setObjectName(QStringLiteral("overlay"));
    overlay_->setStyleSheet(
        QStringLiteral("#overlay { background: rgba(32, 32, 32, 220); border-radius: 6px; }"
                       "#overlay QLabel { color: white; }"));
    overlayText_ = new QLabel;
    overlayText_->setObjectName(QStringLiteral("overlayText"));
    overlayText_->setTextFormat(Qt::PlainText);
    overlayText_->setAlignment(Qt::AlignCenter);
    overlayText_->setWordWrap(true);
    restartButton_ = new QPushButton(style()->standardIcon(QStyle::SP_BrowserReload), tr("Start again"));
    restartButton_->setObjectName(QStringLiteral("restart"));
    restartButton_->installEventFilter(this);
    connect(restartButton_, &QPushButton::clicked, this, [this] {
        setFocus(); // the button goes
        Q_EMIT chosen();
        restart();
    });
    auto* inside = new QVBoxLayout(overlay_);
    inside->addWidget(overlayText_);
    inside->addWidget(restartButton_, 0, Qt::AlignCenter);
    auto* layout = new QVBoxLayout(pictures_);
    layout->setSizeConstraint(QLayout::SetNoConstraint); // pictures may be smaller than words
    layout->addWidget(overlay_, 0, Qt::AlignCenter);

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
    if (const QString problem = addressProblem(url_); !problem.isEmpty()) {
        end(problem);
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
    // A recording that is at its end is at its end.
    stream_.setPolicy({.isEnabled = settings_.isReconnecting && parent::isLive(url_)});
    stream_.setPaused(false);
    isUsersStart_ = true;
    stream_.start(job);
    isUsersStart_ = false;
}

void StreamView::goLive() {
    if (!url_.isEmpty()) {
        stream_.setPaused(false);
        stream_.retry();
    }
}

void StreamView::setLowLatency(bool hasLowLatency) {
    const bool isNew = std::exchange(settings_.hasLowLatency, hasLowLatency) != hasLowLatency;
    if (isNew && isRunning() && parent::isLive(url_)) {
        restart();
    }
}

void StreamView::onStarted() {
    endWords_.clear();
    hasPicture_ = false;
    isSoundProblemTold_ = isSoundProblemTold_ && !isUsersStart_;
    note_->hide();
    monitor_.started(now());
    if (stream_.isPaused()) {
        monitor_.setPaused(now(), true);
    }
    if (isUsersStart_) {
        carryOut(sound_.forNewWorker());
    }
    refreshTimer_.start(kRefreshInterval);
    refresh();
}

void StreamView::stop() {
    stream_.stop();
}

bool StreamView::waitForEnd(std::chrono::milliseconds timeout) {
    return worker().waitForFinished(timeout);
}

void StreamView::end(const QString& words) {
    endWords_ = words;
    monitor_.ended();
    refresh();
}

void StreamView::setPaused(bool isPaused) {
    if (!isRunning() || isPaused == monitor_.isPaused()) {
        return;
    }
    stream_.setPaused(isPaused);
    monitor_.setPaused(now(), isPaused);
    refresh();
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
        stream_.stopAudio();
    } else {
        stream_.setVolume(command->percent);
    }
    tellSoundProblem();
    Q_EMIT changed();
}

StreamStatus StreamView::status() const {
    const auto moment = now();
    StreamStatus status;
    status.state = monitor_.state(moment);
    // What could not even be started has not ended for the monitor.
    if (!endWords_.isEmpty()) {
        status.state = PlaybackState::Ended;
        status.endWords = endWords_;
        status.untilNextAttempt = stream_.untilNextAttempt();
    }
    status.soundProblem = stream_.worker().findings().soundUnavailable;
    status.isRecording = isRecording_;
    status.pictureSize = pictures_->pictureSize();
    status.framesPerSecond = monitor_.framesPerSecond(moment);
    status.positionMs = monitor_.positionMs();
    status.absoluteTimeMs = monitor_.absoluteTimeMs();
    if (status.positionMs) {
        status.delayMs = monitor_.delayMs(moment);
        if (parent::isLive(url_)) {
            status.behindMs = monitor_.behindMs(moment);
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
    const bool isWaiting =
        current.state == PlaybackState::Connecting || current.state == PlaybackState::Buffering;
    QString text;
    if (current.state == PlaybackState::Idle) {
        text = tr("Open a stream or a file: Ctrl+O");
    } else if (isEnded || isWaiting) {
        text = stateText(current);
        text[0] = text[0].toUpper();
    }
    overlayText_->setText(text);
    if (!isEnded && restartButton_->hasFocus()) {
        setFocus(); // or the next view would get it
    }
    restartButton_->setVisible(isEnded);
    overlay_->setVisible(!text.isEmpty());
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
