#include "tools/view/ViewerWindow.h"

#include "parent/MaskedUrls.h"
#include "tools/files/FileUrl.h"
#include "tools/view/ExportDialog.h"
#include "tools/view/LogWindow.h"
#include "tools/view/PictureWidget.h"
#include "tools/view/Placement.h"
#include "tools/view/Snapshot.h"

#include <QAction>
#include <QCloseEvent>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QGridLayout>
#include <QInputDialog>
#include <QLabel>
#include <QMenuBar>
#include <QMimeData>
#include <QScreen>
#include <QSignalBlocker>
#include <QSlider>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QToolButton>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <utility>

namespace mediaworker::view {

namespace {

constexpr QSize kInitialSize(960, 640);
// So much of a window that fits its picture that the words over it, and their button, have room.
constexpr QSize kSmallestFit(320, 180);
constexpr int kGapPx = 2; // between the streams of a grid
constexpr int kVolumeWidthPx = 110;
constexpr int kLabelMarginPx = 4; // of the status bar
constexpr int kMessageMs = 5000;
// All workers together have this long to end by themselves when the window closes.
constexpr std::chrono::milliseconds kEndPatience{1000};

} // namespace

ViewerWindow::ViewerWindow(StreamSettings settings, QString snapshotFolder, QWidget* parent)
    : QMainWindow(parent), settings_(std::move(settings)), snapshotFolder_(std::move(snapshotFolder)) {
    setWindowTitle(QStringLiteral("mediaworker-view"));
    setAcceptDrops(true);
    resize(kInitialSize);
    grid_ = new QWidget;
    grid_->setAutoFillBackground(true);
    grid_->setBackgroundRole(QPalette::Shadow);
    layout_ = new QGridLayout(grid_);
    layout_->setContentsMargins(0, 0, 0, 0);
    layout_->setSpacing(kGapPx);
    setCentralWidget(grid_);
    makeActions();
    makeMenus();
    makeToolbar();
    makeStatusBar();
    new LogAction(*this, [this] { return current(); });
    refresh();
}

ViewerWindow::~ViewerWindow() {
    // Before the widgets that they would tell about their end.
    delete exportDialog_;
    for (StreamView* view : std::exchange(views_, {})) {
        delete view;
    }
}

QAction* ViewerWindow::makeAction(const char* name, const QString& text, const QList<QKeySequence>& keys) {
    auto* action = new QAction(text, this);
    action->setObjectName(QLatin1String(name));
    action->setShortcuts(keys);
    addAction(action); // keys work while menu bar and toolbar are hidden
    return action;
}

void ViewerWindow::makeActions() {
    openAction_ = makeAction("open", tr("Open…"), {QKeySequence::Open});
    connect(openAction_, &QAction::triggered, this, [this] { askForUrl(false); });
    openFileAction_ =
        makeAction("openFile", tr("Open file…"), {QKeySequence(QStringLiteral("Ctrl+Shift+O"))});
    connect(openFileAction_, &QAction::triggered, this, &ViewerWindow::askForFile);
    addAction_ = makeAction("add", tr("Add stream…"), {QKeySequence::New});
    connect(addAction_, &QAction::triggered, this, [this] { askForUrl(true); });
    closeStreamAction_ = makeAction("closeStream", tr("Close stream"), {QKeySequence::Close});
    connect(closeStreamAction_, &QAction::triggered, this, &ViewerWindow::closeCurrent);
    exportAction_ = makeAction("export", tr("Export…"), {QKeySequence(QStringLiteral("Ctrl+E"))});
    connect(exportAction_, &QAction::triggered, this, &ViewerWindow::showExportDialog);
    quitAction_ = makeAction("quit", tr("Quit"), {QKeySequence(QStringLiteral("Ctrl+Q"))});
    connect(quitAction_, &QAction::triggered, this, &QWidget::close);

    pauseAction_ = makeAction("pause", tr("Pause"), {QKeySequence(Qt::Key_Space)});
    connect(pauseAction_, &QAction::triggered, this, [this] {
        if (current_ != nullptr) {
            current_->setPaused(!current_->isPaused());
        }
    });
    restartAction_ = makeAction("startAgain", tr("Start again"), {QKeySequence::Refresh});
    connect(restartAction_, &QAction::triggered, this, [this] {
        if (current_ != nullptr) {
            current_->restart();
        }
    });
    muteAction_ = makeAction("mute", tr("Mute"), {QKeySequence(Qt::Key_M)});
    muteAction_->setCheckable(true);
    connect(muteAction_, &QAction::triggered, this, [this](bool isMuted) {
        if (current_ != nullptr) {
            current_->setMuted(isMuted);
        }
    });
    louderAction_ =
        makeAction("louder", tr("Louder"), {QKeySequence(Qt::Key_Up), QKeySequence(Qt::Key_Right)});
    quieterAction_ =
        makeAction("quieter", tr("Quieter"), {QKeySequence(Qt::Key_Down), QKeySequence(Qt::Key_Left)});
    for (const auto& [action, direction] : {std::pair(louderAction_, 1), std::pair(quieterAction_, -1)}) {
        connect(action, &QAction::triggered, this, [this, direction = direction] {
            if (current_ != nullptr) {
                current_->stepVolume(direction);
            }
        });
    }
    snapshotAction_ = makeAction("snapshot", tr("Snapshot"), {QKeySequence(Qt::Key_S)});
    connect(snapshotAction_, &QAction::triggered, this, &ViewerWindow::takeSnapshot);

    fullScreenAction_ =
        makeAction("fullScreen", tr("Full screen"), {QKeySequence(Qt::Key_F), QKeySequence(Qt::Key_F11)});
    fullScreenAction_->setCheckable(true);
    connect(fullScreenAction_, &QAction::triggered, this, &ViewerWindow::setFillsScreen);
    leaveFullScreenAction_ =
        makeAction("leaveFullScreen", tr("Leave full screen"), {QKeySequence(Qt::Key_Escape)});
    connect(leaveFullScreenAction_, &QAction::triggered, this, [this] { setFillsScreen(false); });

    openAction_->setIcon(style()->standardIcon(QStyle::SP_DialogOpenButton));
    snapshotAction_->setIcon(style()->standardIcon(QStyle::SP_DialogSaveButton));
    fullScreenAction_->setIcon(style()->standardIcon(QStyle::SP_TitleBarMaxButton));
    restartAction_->setIcon(style()->standardIcon(QStyle::SP_BrowserReload));
}

void ViewerWindow::makeMenus() {
    QMenu* const file = menuBar()->addMenu(tr("&File"));
    file->addActions({openAction_, openFileAction_, addAction_, closeStreamAction_});
    file->addSeparator();
    file->addActions({snapshotAction_, exportAction_});
    file->addSeparator();
    file->addAction(quitAction_);
    QMenu* const playback = menuBar()->addMenu(tr("&Playback"));
    playback->addActions({pauseAction_, restartAction_});
    playback->addSeparator();
    playback->addActions({muteAction_, louderAction_, quieterAction_});
    menuBar()->addMenu(tr("&View"))->addActions({fullScreenAction_, leaveFullScreenAction_});
}

void ViewerWindow::makeToolbar() {
    toolbar_ = addToolBar(tr("Toolbar"));
    toolbar_->setMovable(false);
    toolbar_->setContextMenuPolicy(Qt::PreventContextMenu);
    toolbar_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toolbar_->addActions({openAction_, pauseAction_, muteAction_});
    volume_ = new QSlider(Qt::Horizontal);
    volume_->setObjectName(QStringLiteral("volume"));
    volume_->setRange(0, 100);
    volume_->setFixedWidth(kVolumeWidthPx);
    volume_->setFocusPolicy(Qt::NoFocus); // the keys are the window's
    connect(volume_, &QSlider::valueChanged, this, [this](int percent) {
        if (current_ != nullptr) {
            current_->setVolume(percent);
        }
    });
    volumeText_ = new QLabel;
    volumeText_->setObjectName(QStringLiteral("volumeText"));
    volumeText_->setMinimumWidth(fontMetrics().horizontalAdvance(QStringLiteral(" 100 % ")));
    volumeText_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    toolbar_->addWidget(volume_);
    toolbar_->addWidget(volumeText_);
    toolbar_->addSeparator();
    toolbar_->addActions({snapshotAction_, fullScreenAction_});
    // The two faces of a button must not move those beside it.
    if (auto* button = qobject_cast<QToolButton*>(toolbar_->widgetForAction(pauseAction_))) {
        button->setMinimumWidth(fontMetrics().horizontalAdvance(tr("Resume")) + 48);
    }
}

void ViewerWindow::makeStatusBar() {
    const auto makeLabel = [](const char* name) {
        auto* label = new QLabel;
        label->setObjectName(QLatin1String(name));
        label->setTextFormat(Qt::PlainText);
        label->setMargin(kLabelMarginPx);
        return label;
    };
    state_ = makeLabel("state");
    state_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    statusBar()->addWidget(state_, 1);
    size_ = makeLabel("size");
    rate_ = makeLabel("rate");
    position_ = makeLabel("position");
    delay_ = makeLabel("delay");
    for (QLabel* label : {size_, rate_, position_, delay_}) {
        statusBar()->addPermanentWidget(label);
    }
}

StreamView& ViewerWindow::add(const QString& url) {
    auto* view = new StreamView(settings_);
    views_.push_back(view);
    connect(view, &StreamView::chosen, this, [this, view] { choose(view); });
    connect(view, &StreamView::doubleClicked, this, [this, view] { toggleAlone(view); });
    connect(view, &StreamView::wheelTurned, this, [this, view](int steps) {
        choose(view);
        for (int i = 0; i < std::abs(steps); ++i) {
            view->stepVolume(steps);
        }
    });
    connect(view, &StreamView::firstPicture, this, [this, view] { fitToFirstPicture(view); });
    connect(view, &StreamView::changed, this, [this, view] {
        if (view == current_) {
            refresh();
        }
    });
    alone_ = nullptr;
    arrange();
    choose(view);
    if (!url.isEmpty()) {
        view->open(url);
    }
    return *view;
}

void ViewerWindow::open(const QString& url) {
    if (current_ == nullptr) {
        add(url);
    } else {
        current_->open(url);
    }
}

void ViewerWindow::choose(StreamView* view) {
    current_ = view;
    for (StreamView* each : views_) {
        each->setCurrent(each == view);
    }
    refresh();
}

void ViewerWindow::arrange() {
    while (layout_->count() > 0) {
        delete layout_->takeAt(0);
    }
    for (int i = 0; i < layout_->rowCount(); ++i) {
        layout_->setRowStretch(i, 0);
    }
    for (int i = 0; i < layout_->columnCount(); ++i) {
        layout_->setColumnStretch(i, 0);
    }
    const int count = alone_ != nullptr ? 1 : static_cast<int>(views_.size());
    const GridShape shape = gridShape(count);
    int place = 0;
    for (StreamView* view : views_) {
        const bool isShown = alone_ == nullptr || view == alone_;
        view->showCaption(count > 1);
        if (isShown) {
            const int row = place / shape.columns;
            const int column = place % shape.columns;
            layout_->addWidget(view, row, column);
            layout_->setRowStretch(row, 1);
            layout_->setColumnStretch(column, 1);
            ++place;
        } else if (view->parentWidget() == nullptr) {
            view->setParent(grid_);
        }
        view->setVisible(isShown);
    }
}

void ViewerWindow::closeCurrent() {
    if (current_ == nullptr) {
        return;
    }
    StreamView* const gone = std::exchange(current_, nullptr);
    alone_ = nullptr;
    const auto place = views_.erase(std::find(views_.begin(), views_.end(), gone));
    StreamView* const next = place != views_.end() ? *place : views_.empty() ? nullptr : views_.back();
    gone->hide();
    gone->disconnect(this);
    gone->stop();
    gone->waitForEnd(kEndPatience);
    gone->deleteLater();
    arrange();
    choose(next);
}

// A double click fills the screen; in a grid, with this stream alone.
void ViewerWindow::toggleAlone(StreamView* view) {
    const bool fills = !fillsScreen_;
    alone_ = fills && views_.size() > 1 ? view : nullptr;
    arrange();
    setFillsScreen(fills);
}

void ViewerWindow::setFillsScreen(bool fills) {
    if (fills == fillsScreen_) {
        return;
    }
    fillsScreen_ = fills;
    menuBar()->setVisible(!fills);
    toolbar_->setVisible(!fills);
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
        alone_ = nullptr;
        arrange();
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
    if (!isFirst || views_.size() != 1 || fillsScreen_ || isMaximized() || size() != kInitialSize) {
        return;
    }
    const QSize around = size() - view->pictures().size();
    const QSize frame = frameGeometry().size() - size();
    const QSize room = screen()->availableGeometry().size() - around - frame;
    resize((initialPictureSize(view->pictures().pictureSize(), room).expandedTo(kSmallestFit) + around)
               .expandedTo(QSize(toolbar_->sizeHint().width(), 0))
               .expandedTo(minimumSizeHint()));
    // The window must not hang over an edge.
    const QRect available = screen()->availableGeometry();
    const QRect now = frameGeometry();
    move(std::clamp(now.x(), available.left(),
                    std::max(available.left(), available.right() - now.width() + 1)),
         std::clamp(now.y(), available.top(),
                    std::max(available.top(), available.bottom() - now.height() + 1)));
}

void ViewerWindow::askForUrl(bool inNewView) {
    bool isAccepted = false;
    const QString present = current_ != nullptr ? current_->url() : QString();
    const bool isSecret = parent::maskedUrls(present) != present;
    const QString text = QInputDialog::getText(this, inNewView ? tr("Add stream") : tr("Open"),
                                               tr("URL of a stream, or path of a file:"), QLineEdit::Normal,
                                               isSecret ? QString() : present, &isAccepted);
    const QString url = streamUrl(text, QDir::currentPath());
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

// Compressing takes longer than a picture lasts, so a thread of its own does it.
void ViewerWindow::takeSnapshot() {
    const QImage picture = current_ != nullptr ? current_->pictures().picture() : QImage();
    if (current_ == nullptr || picture.isNull()) {
        statusBar()->showMessage(tr("There is no picture to save."), kMessageMs);
        Q_EMIT snapshotFailed(tr("no picture"));
        return;
    }
    QDir().mkpath(snapshotFolder_);
    const QDir folder(snapshotFolder_);
    const QString path =
        folder.filePath(snapshotName(current_->name(), QDateTime::currentDateTime(),
                                     [&](const QString& name) { return folder.exists(name); }));
    writers_.start([this, picture, path] {
        const QString problem = savePng(picture, path);
        QMetaObject::invokeMethod(
            this,
            [this, path, problem] {
                const QString shownPath = QDir::toNativeSeparators(path);
                statusBar()->showMessage(problem.isEmpty() ? tr("Saved %1").arg(shownPath)
                                                           : tr("Cannot save %1: %2").arg(shownPath, problem),
                                         kMessageMs);
                if (problem.isEmpty()) {
                    Q_EMIT snapshotSaved(path);
                } else {
                    Q_EMIT snapshotFailed(problem);
                }
            },
            Qt::QueuedConnection);
    });
}

void ViewerWindow::showExportDialog() {
    if (current_ == nullptr) {
        return;
    }
    if (!exportDialog_) {
        exportDialog_ = new ExportDialog(current_->url(), settings_.workerProgram, this);
        exportDialog_->setFlvReading(settings_.flv);
        exportDialog_->setConfined(settings_.isConfined);
        exportDialog_->setAttribute(Qt::WA_DeleteOnClose);
    }
    exportDialog_->show();
    exportDialog_->raise();
    exportDialog_->activateWindow();
}

void ViewerWindow::refresh() {
    const bool hasStream = current_ != nullptr && !current_->url().isEmpty();
    const StreamStatus status = current_ != nullptr ? current_->status() : StreamStatus{};
    const QString silence = soundText(status);
    state_->setText(silence.isEmpty() ? stateText(status)
                                      : stateText(status) + QStringLiteral(", ") + silence);
    state_->setToolTip(state_->text());
    const std::pair<QLabel*, QString> labels[] = {{size_, sizeText(status)},
                                                  {rate_, rateText(status)},
                                                  {position_, positionText(status)},
                                                  {delay_, delayText(status)}};
    for (const auto& [label, text] : labels) {
        label->setText(text);
        label->setVisible(!text.isEmpty());
    }

    const bool isPaused = hasStream && current_->isPaused();
    pauseAction_->setText(isPaused ? tr("Resume") : tr("Pause"));
    pauseAction_->setIcon(style()->standardIcon(isPaused ? QStyle::SP_MediaPlay : QStyle::SP_MediaPause));
    pauseAction_->setEnabled(hasStream && current_->isRunning());
    restartAction_->setEnabled(hasStream);
    closeStreamAction_->setEnabled(current_ != nullptr);
    exportAction_->setEnabled(hasStream && !isFileUrl(current_->url()));
    snapshotAction_->setEnabled(!status.pictureSize.isEmpty());
    fullScreenAction_->setChecked(fillsScreen_);
    leaveFullScreenAction_->setEnabled(fillsScreen_);

    const SoundControl sound =
        current_ != nullptr ? current_->sound() : SoundControl(settings_.volumePercent, settings_.isMuted);
    muteAction_->setChecked(sound.isMuted());
    muteAction_->setIcon(
        style()->standardIcon(sound.isMuted() ? QStyle::SP_MediaVolumeMuted : QStyle::SP_MediaVolume));
    const QSignalBlocker blocker(volume_);
    volume_->setValue(sound.percent());
    volumeText_->setText(QStringLiteral("%1 % ").arg(sound.percent()));
    volumeText_->setEnabled(!sound.isMuted());

    setWindowTitle(hasStream ? current_->name() + QStringLiteral(" – mediaworker-view")
                             : QStringLiteral("mediaworker-view"));
}

ExportDialog* ViewerWindow::exportDialog() const {
    return exportDialog_;
}

QStringList ViewerWindow::statistics() const {
    QStringList lines;
    for (const StreamView* view : views_) {
        const PictureWidget& pictures = view->pictures();
        lines << QStringLiteral("stream %1: %2 announced, %3 shown, %4 copied, %5 fps")
                     .arg(lines.size() + 1)
                     .arg(view->monitor().frames())
                     .arg(pictures.shown())
                     .arg(pictures.copies())
                     .arg(pictures.shownPerSecond(), 0, 'f', 1);
    }
    return lines;
}

// A window manager may end what it was asked for, too.
void ViewerWindow::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::WindowStateChange && fillsScreen_ && !isFullScreen()) {
        setFillsScreen(false);
    }
}

void ViewerWindow::closeEvent(QCloseEvent* event) {
    if (exportDialog_) {
        exportDialog_->cancel();
        exportDialog_->close();
    }
    for (StreamView* view : views_) {
        view->stop();
    }
    const auto deadline = std::chrono::steady_clock::now() + kEndPatience;
    for (StreamView* view : views_) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        // Who is late is killed with its view.
        static_cast<void>(view->waitForEnd(std::max(left, std::chrono::milliseconds(0))));
    }
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
