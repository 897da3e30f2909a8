#pragma once

#include "tools/view/StreamView.h"
#include "tools/view/ViewerMemory.h"
#include "tools/view/Wall.h"

#include <QMainWindow>
#include <QStringList>

#include <vector>

namespace mediaworker::view {

class RecordingControl;
class SnapshotTaker;
class StatusLine;
class ViewerActions;

/// The window: a wall of streams, and toolbar, menus, keys and status bar for the one that was chosen last.
class ViewerWindow : public QMainWindow {
    Q_OBJECT

public:
    /// `snapshotFolder` is where pictures are saved; made when the first one is.
    ViewerWindow(StreamSettings settings, const QString& snapshotFolder, QWidget* parent = nullptr);
    ~ViewerWindow() override;
    ViewerWindow(const ViewerWindow&) = delete;
    ViewerWindow& operator=(const ViewerWindow&) = delete;

    /// Adds one more stream and chooses it. Without a name, it has the one that its URL says.
    StreamView& add(const QString& url, const QString& name = {});
    /// The URL in the chosen view, or in the first one.
    void open(const QString& url);

    [[nodiscard]] const std::vector<StreamView*>& views() const { return wall_->views(); }
    [[nodiscard]] StreamView* current() const { return wall_->current(); }
    void choose(StreamView* view) { wall_->choose(view); }

    [[nodiscard]] bool fillsScreen() const { return fillsScreen_; }
    void setFillsScreen(bool fills);

    /// Takes window size, layout, volumes and addresses from that file, and writes them there when it closes.
    /// Call before streams are added.
    void setMemory(const QString& file);

    [[nodiscard]] RecordingControl& recordings() const { return *recordings_; }

    /// Closes without a question: recordings that run are finished first.
    void closeUnattended();

    /// One line for each stream: pictures announced, shown and copied, and their rate.
    [[nodiscard]] QStringList statistics() const;

Q_SIGNALS:
    void snapshotSaved(const QString& path);
    void snapshotFailed(const QString& why);

protected:
    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void connectActions();
    void toggleAlone(StreamView* view);
    void fitToFirstPicture(StreamView* view);
    void askForUrl(bool inNewView);
    void askForFile();
    void keepOnScreen();
    void remember();
    void refresh();
    void refreshRecordingMarks();

    StreamSettings settings_;
    QString memoryFile_; ///< empty: nothing is remembered
    ViewerMemory memory_;
    bool fillsScreen_ = false;
    bool wasMaximized_ = false; ///< before it filled the screen
    QRect normalGeometry_;      ///< before it filled the screen
    bool isFitted_ = false;     ///< the window has had its size from the first picture
    bool isUnattended_ = false; ///< nobody is asked whether it may close

    Wall* wall_;
    SnapshotTaker* snapshots_;
    ViewerActions* actions_;
    StatusLine* status_;
    RecordingControl* recordings_;
};

} // namespace mediaworker::view
