#pragma once

#include "tools/view/StreamView.h"

#include <QImage>
#include <QMainWindow>
#include <QPointer>
#include <QStringList>
#include <QThreadPool>

#include <vector>

class QAction;
class QGridLayout;
class QLabel;
class QSlider;

namespace mediaworker::view {

class ExportDialog;

/// The window: streams in a grid, and toolbar, menus, keys and status bar for the one that was chosen last.
class ViewerWindow : public QMainWindow {
    Q_OBJECT

public:
    /// `snapshotFolder` is where pictures are saved; made when the first one is.
    ViewerWindow(StreamSettings settings, QString snapshotFolder, QWidget* parent = nullptr);
    ~ViewerWindow() override;
    ViewerWindow(const ViewerWindow&) = delete;
    ViewerWindow& operator=(const ViewerWindow&) = delete;

    /// Adds one more stream and chooses it.
    StreamView& add(const QString& url);
    /// The URL in the chosen view, or in the first one.
    void open(const QString& url);

    [[nodiscard]] const std::vector<StreamView*>& views() const { return views_; }
    [[nodiscard]] StreamView* current() const { return current_; }
    void choose(StreamView* view);

    [[nodiscard]] bool fillsScreen() const { return fillsScreen_; }
    void setFillsScreen(bool fills);

    /// The dialog of the export that was begun last; null when it is closed.
    [[nodiscard]] ExportDialog* exportDialog() const;

    /// One line for each stream: pictures announced, shown and copied, and their rate.
    [[nodiscard]] QStringList statistics() const;

Q_SIGNALS:
    void snapshotSaved(const QString& path);
    void snapshotFailed(const QString& why);

protected:
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    QAction* makeAction(const char* name, const QString& text, const QList<QKeySequence>& keys);
    void makeActions();
    void makeMenus();
    void makeToolbar();
    void makeStatusBar();
    void arrange();
    void closeCurrent();
    void toggleAlone(StreamView* view);
    void fitToFirstPicture(StreamView* view);
    void askForUrl(bool inNewView);
    void askForFile();
    void takeSnapshot();
    void showExportDialog();
    void refresh();

    StreamSettings settings_;
    QString snapshotFolder_;
    std::vector<StreamView*> views_; ///< children of grid_, in the order added
    StreamView* current_ = nullptr;  ///< one of views_; null when there is none
    StreamView* alone_ = nullptr;    ///< the only one that is shown; null: all are
    bool fillsScreen_ = false;
    bool wasMaximized_ = false; ///< before it filled the screen
    QRect normalGeometry_;      ///< before it filled the screen
    bool isFitted_ = false;     ///< the window has had its size from the first picture

    QWidget* grid_;
    QGridLayout* layout_;
    QPointer<ExportDialog> exportDialog_;

    QAction* openAction_ = nullptr;
    QAction* openFileAction_ = nullptr;
    QAction* addAction_ = nullptr;
    QAction* closeStreamAction_ = nullptr;
    QAction* exportAction_ = nullptr;
    QAction* quitAction_ = nullptr;
    QAction* pauseAction_ = nullptr;
    QAction* restartAction_ = nullptr;
    QAction* muteAction_ = nullptr;
    QAction* louderAction_ = nullptr;
    QAction* quieterAction_ = nullptr;
    QAction* snapshotAction_ = nullptr;
    QAction* fullScreenAction_ = nullptr;
    QAction* leaveFullScreenAction_ = nullptr;
    QToolBar* toolbar_ = nullptr;
    QSlider* volume_ = nullptr;
    QLabel* volumeText_ = nullptr;
    QLabel* state_ = nullptr;
    QLabel* size_ = nullptr;
    QLabel* rate_ = nullptr;
    QLabel* position_ = nullptr;
    QLabel* delay_ = nullptr;

    QThreadPool writers_; ///< of snapshots; last: waits for them when it goes
};

} // namespace mediaworker::view
