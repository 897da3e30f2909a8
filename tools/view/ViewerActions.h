#pragma once

#include "tools/view/SoundControl.h"

#include <QKeySequence>
#include <QList>
#include <QObject>
#include <QString>

#include <optional>

class QAction;
class QLabel;
class QMainWindow;
class QMenu;
class QSlider;
class QToolBar;

namespace mediaworker::view {

/// What can be done in a viewer's window: its actions with their keys, and the menus and the toolbar that
/// show them. What they do is the window's.
class ViewerActions : public QObject {
    Q_OBJECT

public:
    /// `window` owns it and everything that it makes.
    explicit ViewerActions(QMainWindow& window);

    /// What of it there is for the stream that was chosen.
    struct Situation {
        bool hasView = false;
        bool hasStream = false;
        bool isRunning = false;
        bool isPaused = false;
        bool isRecording = false;
        bool canBeExported = false;
        bool hasPicture = false;
        bool fillsScreen = false;
        bool isAlone = false;    ///< one of several fills the window
        bool hasSeveral = false; ///< arrows choose between them
        bool isBehind = false;   ///< a live stream is
        bool hasLowLatency = false;
        SoundControl sound = SoundControl();
    };
    void show(const Situation& situation);
    /// Menu bar and toolbar.
    void setVisible(bool isVisible);
    [[nodiscard]] int toolbarWidth() const;

    QAction* open;
    QAction* openFile;
    QAction* add;
    QAction* closeStream;
    QAction* copyAddress;
    QAction* exportStream;
    QAction* record;
    QAction* quit;
    QAction* pause;
    QAction* restart;
    QAction* live;
    QAction* lowLatency;
    QAction* mute;
    QAction* louder;
    QAction* quieter;
    QAction* snapshot;
    QAction* fullScreen;
    QAction* leaveFullScreen;

    /// What can be done with the chosen stream.
    [[nodiscard]] QMenu& streamMenu() { return *streamMenu_; }

Q_SIGNALS:
    void volumeChosen(int percent); ///< by the slider

private:
    QAction* make(const char* name, const QString& text, const QList<QKeySequence>& keys);
    void makeMenus();
    void makeToolbar();
    void setArrowsAreVolume(bool areVolume);

    QMainWindow& window_;
    QMenu* streamMenu_ = nullptr;
    QToolBar* toolbar_ = nullptr;
    std::optional<bool> arrowsAreVolume_;
    QSlider* volume_ = nullptr;
    QLabel* volumeText_ = nullptr;
};

} // namespace mediaworker::view
