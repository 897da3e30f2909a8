#include "tools/view/ViewerActions.h"

#include <QAction>
#include <QLabel>
#include <QMainWindow>
#include <QMenuBar>
#include <QSignalBlocker>
#include <QSlider>
#include <QStyle>
#include <QToolBar>
#include <QToolButton>

namespace mediaworker::view {

namespace {

constexpr int kVolumeWidthPx = 110;

} // namespace

ViewerActions::ViewerActions(QMainWindow& window)
    : QObject(&window), open(make("open", tr("Open…"), {QKeySequence::Open})),
      openFile(make("openFile", tr("Open file…"), {QKeySequence(QStringLiteral("Ctrl+Shift+O"))})),
      add(make("add", tr("Add stream…"), {QKeySequence::New})),
      closeStream(make("closeStream", tr("Close stream"), {QKeySequence::Close})),
      copyAddress(make("copyAddress", tr("Copy address"), {QKeySequence::Copy})),
      exportStream(make("export", tr("Export…"), {QKeySequence(QStringLiteral("Ctrl+E"))})),
      record(make("record", tr("Record"), {QKeySequence(Qt::Key_R)})),
      quit(make("quit", tr("Quit"), {QKeySequence(QStringLiteral("Ctrl+Q"))})),
      pause(make("pause", tr("Pause"), {QKeySequence(Qt::Key_Space)})),
      restart(make("startAgain", tr("Start again"), {QKeySequence::Refresh})),
      live(make("live", tr("Live"), {QKeySequence(Qt::Key_End)})),
      lowLatency(make("lowLatency", tr("Low latency"), {})),
      mute(make("mute", tr("Mute"), {QKeySequence(Qt::Key_M)})), louder(make("louder", tr("Louder"), {})),
      quieter(make("quieter", tr("Quieter"), {})),
      snapshot(make("snapshot", tr("Snapshot"), {QKeySequence(Qt::Key_S)})),
      fullScreen(make("fullScreen", tr("Full screen"), {QKeySequence(Qt::Key_F), QKeySequence(Qt::Key_F11)})),
      leaveFullScreen(make("leaveFullScreen", tr("Leave full screen"), {QKeySequence(Qt::Key_Escape)})),
      window_(window) {
    const QStyle* const style = window.style();
    mute->setCheckable(true);
    lowLatency->setCheckable(true);
    live->setToolTip(tr("Go to the newest picture"));
    fullScreen->setCheckable(true);
    open->setIcon(style->standardIcon(QStyle::SP_DialogOpenButton));
    snapshot->setIcon(style->standardIcon(QStyle::SP_DialogSaveButton));
    fullScreen->setIcon(style->standardIcon(QStyle::SP_TitleBarMaxButton));
    restart->setIcon(style->standardIcon(QStyle::SP_BrowserReload));
    for (QAction* action : findChildren<QAction*>()) {
        window.addAction(action); // keys work while menu bar and toolbar are hidden
    }
    makeMenus();
    makeToolbar();
}

QAction* ViewerActions::make(const char* name, const QString& text, const QList<QKeySequence>& keys) {
    auto* action = new QAction(text, this);
    action->setObjectName(QLatin1String(name));
    action->setShortcuts(keys);
    return action;
}

void ViewerActions::makeMenus() {
    QMenu* const file = window_.menuBar()->addMenu(tr("&File"));
    file->addActions({open, openFile, add, closeStream, copyAddress});
    file->addSeparator();
    file->addActions({snapshot, record, exportStream});
    file->addSeparator();
    file->addAction(quit);
    QMenu* const playback = window_.menuBar()->addMenu(tr("&Playback"));
    playback->addActions({pause, live, restart, lowLatency});
    playback->addSeparator();
    playback->addActions({mute, louder, quieter});
    streamMenu_ = new QMenu(&window_);
    streamMenu_->setObjectName(QStringLiteral("streamMenu"));
    streamMenu_->addActions({pause, live, restart, mute});
    streamMenu_->addSeparator();
    streamMenu_->addActions({record, snapshot});
    streamMenu_->addSeparator();
    streamMenu_->addActions({copyAddress});
    streamMenu_->addSeparator();
    streamMenu_->addActions({closeStream});
    window_.menuBar()->addMenu(tr("&View"))->addActions({fullScreen, leaveFullScreen});
}

void ViewerActions::makeToolbar() {
    toolbar_ = window_.addToolBar(tr("Toolbar"));
    toolbar_->setObjectName(QStringLiteral("toolbar"));
    toolbar_->setMovable(false);
    toolbar_->setContextMenuPolicy(Qt::PreventContextMenu);
    toolbar_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toolbar_->addActions({open, pause, live, mute});
    volume_ = new QSlider(Qt::Horizontal);
    volume_->setObjectName(QStringLiteral("volume"));
    volume_->setRange(0, 100);
    volume_->setFixedWidth(kVolumeWidthPx);
    volume_->setFocusPolicy(Qt::NoFocus); // the keys are the window's
    connect(volume_, &QSlider::valueChanged, this, &ViewerActions::volumeChosen);
    volumeText_ = new QLabel;
    volumeText_->setObjectName(QStringLiteral("volumeText"));
    volumeText_->setMinimumWidth(window_.fontMetrics().horizontalAdvance(QStringLiteral(" 100 % ")));
    volumeText_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    toolbar_->addWidget(volume_);
    toolbar_->addWidget(volumeText_);
    toolbar_->addSeparator();
    toolbar_->addActions({snapshot, fullScreen});
    // The two faces of a button must not move those beside it.
    if (auto* button = qobject_cast<QToolButton*>(toolbar_->widgetForAction(pause))) {
        button->setMinimumWidth(window_.fontMetrics().horizontalAdvance(tr("Resume")) + 48);
    }
}

void ViewerActions::show(const Situation& situation) {
    const QStyle* const style = window_.style();
    pause->setText(situation.isPaused ? tr("Resume") : tr("Pause"));
    pause->setIcon(style->standardIcon(situation.isPaused ? QStyle::SP_MediaPlay : QStyle::SP_MediaPause));
    pause->setEnabled(situation.isRunning);
    restart->setEnabled(situation.hasStream);
    live->setEnabled(situation.isBehind);
    lowLatency->setChecked(situation.hasLowLatency);
    copyAddress->setEnabled(situation.hasStream);
    setArrowsAreVolume(!situation.hasSeveral);
    closeStream->setEnabled(situation.hasView);
    record->setText(situation.isRecording ? tr("Finish recording") : tr("Record"));
    record->setEnabled(situation.canBeExported);
    exportStream->setEnabled(situation.canBeExported);
    snapshot->setEnabled(situation.hasPicture);
    fullScreen->setChecked(situation.fillsScreen);
    leaveFullScreen->setEnabled(situation.fillsScreen || situation.isAlone);

    const SoundControl& sound = situation.sound;
    mute->setChecked(sound.isMuted());
    mute->setIcon(
        style->standardIcon(sound.isMuted() ? QStyle::SP_MediaVolumeMuted : QStyle::SP_MediaVolume));
    const QSignalBlocker blocker(volume_);
    volume_->setValue(sound.percent());
    volumeText_->setText(QStringLiteral("%1 % ").arg(sound.percent()));
    volumeText_->setEnabled(!sound.isMuted());
}

/// Where there is nothing to choose, all of them are.
void ViewerActions::setArrowsAreVolume(bool areVolume) {
    if (arrowsAreVolume_ == areVolume) {
        return;
    }
    arrowsAreVolume_ = areVolume;
    QList<QKeySequence> up{QKeySequence(Qt::Key_Plus), QKeySequence(QStringLiteral("Ctrl+Up"))};
    QList<QKeySequence> down{QKeySequence(Qt::Key_Minus), QKeySequence(QStringLiteral("Ctrl+Down"))};
    if (areVolume) {
        up = QList<QKeySequence>{QKeySequence(Qt::Key_Up), QKeySequence(Qt::Key_Right)} + up;
        down = QList<QKeySequence>{QKeySequence(Qt::Key_Down), QKeySequence(Qt::Key_Left)} + down;
    }
    louder->setShortcuts(up);
    quieter->setShortcuts(down);
}

void ViewerActions::setVisible(bool isVisible) {
    window_.menuBar()->setVisible(isVisible);
    toolbar_->setVisible(isVisible);
}

int ViewerActions::toolbarWidth() const {
    return toolbar_->sizeHint().width();
}

} // namespace mediaworker::view
