#pragma once

#include "tools/view/StreamView.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>

class QMainWindow;

namespace mediaworker::view {

class ExportDialog;
class RecordingsDock;

/// The recordings of a window: asks for them, begins and lists them, and has them finished before the window
/// closes.
class RecordingControl : public QObject {
    Q_OBJECT

public:
    /// Adds its list to `window`, which owns it.
    RecordingControl(QMainWindow& window, const StreamSettings& settings);
    ~RecordingControl() override;
    RecordingControl(const RecordingControl&) = delete;
    RecordingControl& operator=(const RecordingControl&) = delete;

    /// Where recordings go that nobody chose a folder for.
    void setFolder(const QString& folder) { folder_ = folder; }
    [[nodiscard]] const QString& folder() const { return folder_; }

    void askFor(const StreamView& view);
    /// Begins one until it is stopped, or finishes the one that runs.
    void toggle(const StreamView& view);
    [[nodiscard]] bool isRecording(const StreamView& view) const;

    enum class Asking { User, Nobody };
    /// Whether the window may close now. Where recordings run, the user is asked; when they are to be
    /// finished, mayCloseNow() comes as soon as they are.
    [[nodiscard]] bool mayClose(Asking asking);
    void closeDialog();

    [[nodiscard]] ExportDialog* dialog() const;
    [[nodiscard]] RecordingsDock& list() const { return *list_; }

Q_SIGNALS:
    void changed(); ///< which ones run
    void mayCloseNow();

private:
    [[nodiscard]] QString proposedFile(const QString& streamName) const;
    void begin(const QString& url, const QString& name, const QString& file, std::chrono::milliseconds length,
               bool mayReplace);
    void tellThatItMayClose();
    void tellWhatIsLeft();

    QMainWindow& window_;
    const StreamSettings settings_;
    QString folder_;
    QPointer<ExportDialog> dialog_;
    RecordingsDock* list_;
    Asking asking_ = Asking::User;
    bool isClosing_ = false; ///< as soon as all recordings are finished
};

} // namespace mediaworker::view
