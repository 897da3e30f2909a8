#include "tools/view/ViewerWindow.h"

#include "parent/MaskedUrls.h"
#include "tools/files/FileUrl.h"
#include "tools/view/LogWindow.h"
#include "tools/view/Placement.h"
#include "tools/view/RecordingControl.h"
#include "tools/view/RecordingsDock.h"
#include "tools/view/SnapshotTaker.h"
#include "tools/view/StatusLine.h"
#include "tools/view/ViewerActions.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QKeyEvent>
#include <QMenu>
#include <QMimeData>
#include <QScreen>
#include <QStatusBar>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>

namespace mediaworker::view {

namespace {

constexpr QSize kInitialSize(960, 640);
// So much of a window that fits its picture that the words over it, and their button, have room.
constexpr QSize kSmallestFit(320, 180);
constexpr int kMessageMs = 5000;

/// Of a window on the screen where most will be.
QSize initialSize() {
    const QScreen* const screen = QGuiApplication::primaryScreen();
    return screen != nullptr ? kInitialSize.boundedTo(screen->availableSize()) : kInitialSize;
}

std::optional<Direction> directionOf(int key) {
    switch (key) {
    case Qt::Key_Left:
        return Direction::Left;
    case Qt::Key_Right:
        return Direction::Right;
    case Qt::Key_Up:
        return Direction::Up;
    case Qt::Key_Down:
        return Direction::Down;
    default:
        return std::nullopt;
    }
}

} // namespace

ViewerWindow::ViewerWindow(StreamSettings settings, const QString& snapshotFolder, QWidget* parent)
    : QMainWindow(parent), settings_(std::move(settings)), wall_(new Wall),
      snapshots_(new SnapshotTaker(snapshotFolder, this)), actions_(new ViewerActions(*this)),
      status_(new StatusLine(*statusBar())), recordings_(new RecordingControl(*this, settings_)) {
    setWindowTitle(QStringLiteral("mediaworker-view"));
    setAcceptDrops(true);
    resize(initialSize());
    setCentralWidget(wall_);
    connect(wall_, &Wall::changed, this, &ViewerWindow::refresh);
    connect(wall_, &Wall::doubleClicked, this, &ViewerWindow::toggleAlone);
    connect(wall_, &Wall::menuWanted, this,
            [this](const QPoint& place) { actions_->streamMenu().popup(place); });
    connect(wall_, &Wall::firstPicture, this, &ViewerWindow::fitToFirstPicture);
    connect(recordings_, &RecordingControl::changed, this, &ViewerWindow::refreshRecordingMarks);
    connect(recordings_, &RecordingControl::mayCloseNow, this, &QWidget::close);
    connect(snapshots_, &SnapshotTaker::saved, this, [this](const QString& path) {
        statusBar()->showMessage(tr("Saved %1").arg(QDir::toNativeSeparators(path)), kMessageMs);
        Q_EMIT snapshotSaved(path);
    });
    connect(snapshots_, &SnapshotTaker::failed, this, [this](const QString& path, const QString& why) {
        statusBar()->showMessage(path.isEmpty()
                                     ? tr("There is no picture to save.")
                                     : tr("Cannot save %1: %2").arg(QDir::toNativeSeparators(path), why),
                                 kMessageMs);
        Q_EMIT snapshotFailed(why);
    });
    connectActions();
    auto* const log = new LogAction(*this, [this] { return current(); });
    actions_->streamMenu().insertAction(actions_->copyAddress, log);
    refresh();
}

ViewerWindow::~ViewerWindow() {
    // Before the widgets that they would tell about their end.
    snapshots_->disconnect(this);
    recordings_->disconnect(this);
    wall_->disconnect(this);
    delete snapshots_;
    delete recordings_;
    delete wall_;
}

void ViewerWindow::connectActions() {
    const auto onCurrent = [this](QAction* action, auto&& act) {
        connect(action, &QAction::triggered, this, [this, act] {
            if (current() != nullptr) {
                act(*current());
            }
        });
    };
    connect(actions_->open, &QAction::triggered, this, [this] { askForUrl(false); });
    connect(actions_->openFile, &QAction::triggered, this, &ViewerWindow::askForFile);
    connect(actions_->add, &QAction::triggered, this, [this] { askForUrl(true); });
    onCurrent(actions_->closeStream, [this](StreamView& view) { wall_->remove(&view); });
    onCurrent(actions_->exportStream, [this](StreamView& view) { recordings_->askFor(view); });
    onCurrent(actions_->record, [this](StreamView& view) { recordings_->toggle(view); });
    connect(actions_->quit, &QAction::triggered, this, &QWidget::close);
    onCurrent(actions_->pause, [](StreamView& view) { view.setPaused(!view.isPaused()); });
    onCurrent(actions_->restart, [](StreamView& view) { view.restart(); });
    onCurrent(actions_->live, [](StreamView& view) { view.goLive(); });
    onCurrent(actions_->copyAddress,
              [](StreamView& view) { QApplication::clipboard()->setText(view.url()); });
    connect(actions_->lowLatency, &QAction::triggered, this, [this](bool hasLowLatency) {
        settings_.hasLowLatency = hasLowLatency;
        for (StreamView* view : views()) {
            view->setLowLatency(hasLowLatency);
        }
    });
    onCurrent(actions_->mute, [this](StreamView& view) { view.setMuted(actions_->mute->isChecked()); });
    onCurrent(actions_->louder, [](StreamView& view) { view.stepVolume(+1); });
    onCurrent(actions_->quieter, [](StreamView& view) { view.stepVolume(-1); });
    connect(actions_, &ViewerActions::volumeChosen, this, [this](int percent) {
        if (current() != nullptr) {
            current()->setVolume(percent);
        }
    });
    connect(actions_->snapshot, &QAction::triggered, this, [this] {
        snapshots_->take(current() != nullptr ? current()->pictures().picture() : QImage(),
                         current() != nullptr ? current()->name() : QString());
    });
    connect(actions_->fullScreen, &QAction::triggered, this, &ViewerWindow::setFillsScreen);
    connect(actions_->leaveFullScreen, &QAction::triggered, this, [this] {
        wall_->setAlone(nullptr);
        setFillsScreen(false);
    });
}

void ViewerWindow::setMemory(const QString& file) {
    memoryFile_ = file;
    const LoadedMemory loaded = loadMemory(file);
    if (!loaded.problem.isEmpty()) {
        std::fprintf(stderr, "mediaworker-view: %s\n", qUtf8Printable(loaded.problem));
    }
    memory_ = loaded.memory;
    if (QFileInfo(memory_.recordingFolder).isDir()) {
        recordings_->setFolder(memory_.recordingFolder);
    }
    if (!memory_.geometry.isEmpty() && restoreGeometry(memory_.geometry)) {
        isFitted_ = true;
        keepOnScreen();
    }
    if (!memory_.layout.isEmpty() && restoreState(memory_.layout)) {
        recordings_->list().hide();
    }
}

void ViewerWindow::remember() {
    if (memoryFile_.isEmpty()) {
        return;
    }
    if (!fillsScreen_) {
        memory_.geometry = saveGeometry();
        memory_.layout = saveState();
    }
    memory_.recordingFolder = recordings_->folder();
    for (const StreamView* view : views()) {
        memory_.noteVolume(view->url(), view->sound().percent());
    }
    saveMemory(memory_, memoryFile_);
}

StreamView& ViewerWindow::add(const QString& url, const QString& name) {
    StreamSettings settings = settings_;
    if (!settings.isVolumeChosen) {
        settings.volumePercent = memory_.volumeOf(url).value_or(settings.volumePercent);
    }
    if (name.isEmpty()) {
        memory_.noteAddress(url);
    }
    StreamView& view = wall_->add(settings);
    if (!url.isEmpty()) {
        view.open(url, name);
    }
    return view;
}

void ViewerWindow::open(const QString& url) {
    if (current() == nullptr) {
        add(url);
    } else {
        memory_.noteAddress(url);
        current()->open(url);
    }
}

// A double click fills the screen; in a grid, with this stream alone.
void ViewerWindow::toggleAlone(StreamView* view) {
    const bool fills = !fillsScreen_;
    wall_->setAlone(fills ? view : nullptr);
    setFillsScreen(fills);
}

void ViewerWindow::setFillsScreen(bool fills) {
    if (fills == fillsScreen_) {
        return;
    }
    fillsScreen_ = fills;
    actions_->setVisible(!fills);
    statusBar()->setVisible(!fills);
    if (fills) {
        wasMaximized_ = isMaximized();
        normalGeometry_ = geometry();
        showFullScreen();
        // Where no window manager gives it that size.
        if (geometry() != screen()->geometry()) {
            setGeometry(screen()->geometry());
        }
    } else {
        wall_->setAlone(nullptr);
        if (wasMaximized_) {
            showMaximized();
        } else {
            showNormal();
        }
        if (geometry() != normalGeometry_) {
            setGeometry(normalGeometry_);
        }
    }
    refresh();
}

// The first picture of the only stream gives the window its size.
void ViewerWindow::fitToFirstPicture(StreamView* view) {
    const bool isFirst = !std::exchange(isFitted_, true);
    if (!isFirst || views().size() != 1 || fillsScreen_ || isMaximized() || size() != initialSize()) {
        return;
    }
    const QSize around = size() - view->pictures().size();
    const QSize frame = frameGeometry().size() - size();
    const QSize room = screen()->availableGeometry().size() - around - frame;
    resize((initialPictureSize(view->pictures().pictureSize(), room).expandedTo(kSmallestFit) + around)
               .expandedTo(QSize(actions_->toolbarWidth(), 0))
               .expandedTo(minimumSizeHint()));
    keepOnScreen();
}

/// The window must be no larger than the screen, and not hang over an edge.
void ViewerWindow::keepOnScreen() {
    const QRect available = screen()->availableGeometry();
    const QSize frame = frameGeometry().size() - size();
    resize(size().boundedTo(available.size() - frame));
    const QRect now = frameGeometry();
    move(std::clamp(now.x(), available.left(),
                    std::max(available.left(), available.right() - now.width() + 1)),
         std::clamp(now.y(), available.top(),
                    std::max(available.top(), available.bottom() - now.height() + 1)));
}

void ViewerWindow::askForUrl(bool inNewView) {
    QInputDialog dialog(this);
    dialog.setWindowTitle(inNewView ? tr("Add stream") : tr("Open"));
    dialog.setLabelText(tr("URL of a stream, or path of a file:"));
    dialog.setComboBoxItems(memory_.addresses);
    dialog.setComboBoxEditable(true);
    const QString present = current() != nullptr ? current()->url() : QString();
    const bool isSecret = parent::maskedUrls(present) != present;
    dialog.setTextValue(isSecret ? QString() : present);
    const bool isAccepted = dialog.exec() == QDialog::Accepted;
    const QString url = streamUrl(dialog.textValue(), QDir::currentPath());
    if (!isAccepted || url.isEmpty()) {
        return;
    }
    if (inNewView) {
        add(url);
    } else {
        open(url);
    }
}

void ViewerWindow::askForFile() {
    const QString path = QFileDialog::getOpenFileName(this, tr("Open file"));
    if (!path.isEmpty()) {
        open(streamUrl(path, QDir::currentPath()));
    }
}

void ViewerWindow::refreshRecordingMarks() {
    for (StreamView* view : views()) {
        view->setRecording(recordings_->isRecording(*view));
    }
    refresh();
}

void ViewerWindow::refresh() {
    const StreamView* const view = current();
    const bool hasStream = view != nullptr && !view->url().isEmpty();
    const StreamStatus status = view != nullptr ? view->status() : StreamStatus{};
    status_->show(status);
    actions_->show({
        .hasView = view != nullptr,
        .hasStream = hasStream,
        .isRunning = hasStream && view->isRunning(),
        .isPaused = hasStream && view->isPaused(),
        .isRecording = status.isRecording,
        .canBeExported = hasStream && !isFileUrl(view->url()),
        .hasPicture = !status.pictureSize.isEmpty(),
        .fillsScreen = fillsScreen_,
        .isAlone = wall_->alone() != nullptr,
        .hasSeveral = views().size() > 1,
        .isBehind = isBehind(status),
        .hasLowLatency = settings_.hasLowLatency,
        .sound = view != nullptr ? view->sound() : SoundControl(settings_.volumePercent, settings_.isMuted),
    });
    setWindowTitle(hasStream ? view->name() + QStringLiteral(" – mediaworker-view")
                             : QStringLiteral("mediaworker-view"));
}

QStringList ViewerWindow::statistics() const {
    QStringList lines;
    for (const StreamView* view : views()) {
        const widgets::StreamWidget& pictures = view->pictures();
        lines << QStringLiteral("stream %1: %2 announced, %3 shown, %4 copied, %5 fps")
                     .arg(lines.size() + 1)
                     .arg(view->monitor().frames())
                     .arg(pictures.shown())
                     .arg(pictures.copies())
                     .arg(pictures.shownPerSecond(), 0, 'f', 1);
    }
    return lines;
}

// What the focus is on comes before the window's keys.
bool ViewerWindow::event(QEvent* event) {
    if (event->type() == QEvent::ShortcutOverride && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Space &&
        qobject_cast<QAbstractButton*>(focusWidget()) != nullptr) {
        event->accept();
        return true;
    }
    return QMainWindow::event(event);
}

void ViewerWindow::keyPressEvent(QKeyEvent* event) {
    if (const auto direction = directionOf(event->key())) {
        wall_->chooseBeside(*direction);
    } else if (event->key() >= Qt::Key_0 && event->key() <= Qt::Key_9) {
        wall_->chooseNumber((event->key() - Qt::Key_0 + 9) % 10);
    } else if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        if (auto* const button = qobject_cast<QAbstractButton*>(focusWidget())) {
            button->click();
        } else {
            wall_->setAlone(wall_->alone() == nullptr ? current() : nullptr);
        }
    } else {
        QMainWindow::keyPressEvent(event);
    }
}

// A window manager may end what it was asked for, too.
void ViewerWindow::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::WindowStateChange && fillsScreen_ && !isFullScreen()) {
        setFillsScreen(false);
    }
}

void ViewerWindow::closeUnattended() {
    isUnattended_ = true;
    close();
}

void ViewerWindow::closeEvent(QCloseEvent* event) {
    using Asking = RecordingControl::Asking;
    if (!recordings_->mayClose(isUnattended_ ? Asking::Nobody : Asking::User)) {
        event->ignore();
        return;
    }
    recordings_->closeDialog();
    remember();
    wall_->stop();
    QMainWindow::closeEvent(event);
}

void ViewerWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) {
        event->acceptProposedAction();
    }
}

void ViewerWindow::dropEvent(QDropEvent* event) {
    for (const QUrl& url : event->mimeData()->urls()) {
        add(streamUrl(url.isLocalFile() ? url.toLocalFile() : url.toString(QUrl::FullyEncoded),
                      QDir::currentPath()));
    }
}

} // namespace mediaworker::view
