#pragma once

#include "tools/view/SoundControl.h"
#include "tools/view/StreamStatus.h"
#include "widgets/StreamWidget.h"

#include <QString>
#include <QTimer>
#include <QWidget>

class QLabel;
class QPushButton;

namespace mediaworker::view {

class ElidedLabel;

/// What all streams of a viewer have in common.
struct StreamSettings {
    QString workerProgram = {}; ///< empty: WorkerProcess finds it
    QString proxyUrl = {};
    QString proxyType = {};
    parent::FlvReading flv = parent::FlvReading::Standard;
    bool hasLowLatency = false;
    bool hasSync = true;
    bool isReconnecting = true; ///< a live stream that ended is started again
    bool isConfined = true;
    int volumePercent = SoundControl::kDefaultPercent;
    bool isVolumeChosen = false; ///< and not to be what it was for that stream
    bool isMuted = false;
};

/// One stream in a worker of its own, and another worker when a live stream has ended: its pictures, what it
/// does in words, and a button to start it again at once. What happens to its worker concerns no other view.
class StreamView : public QWidget {
    Q_OBJECT

public:
    explicit StreamView(StreamSettings settings, QWidget* parent = nullptr);
    ~StreamView() override;
    StreamView(const StreamView&) = delete;
    StreamView& operator=(const StreamView&) = delete;

    /// Plays that URL, whatever was played before. Without a name, it has the one that its URL says.
    void open(const QString& url, const QString& name = {});
    /// Plays the same URL again in a new worker.
    void restart();
    /// Goes on with the newest picture of a live stream: in a new worker, while the last picture stays.
    void goLive();
    /// A running live stream is started again with it.
    void setLowLatency(bool hasLowLatency);
    /// Asks the worker to end, for good; picture and URL stay.
    void stop();
    /// Waits for the worker's end after stop(). False when the time is over.
    bool waitForEnd(std::chrono::milliseconds timeout);

    void setPaused(bool isPaused);
    void setVolume(int percent);
    void stepVolume(int direction);
    void setMuted(bool isMuted);

    [[nodiscard]] bool isRunning() const { return stream().worker().isRunning(); }
    [[nodiscard]] bool isPaused() const { return player().isPaused(); }
    [[nodiscard]] const SoundControl& sound() const { return sound_; }
    [[nodiscard]] const QString& url() const { return url_; }
    /// As it can be shown.
    [[nodiscard]] const QString& name() const { return name_; }
    [[nodiscard]] StreamStatus status() const;
    [[nodiscard]] widgets::StreamWidget& pictures() const { return *pictures_; }
    [[nodiscard]] const parent::PlaybackMonitor& monitor() const { return player().monitor(); }
    [[nodiscard]] parent::StreamSupervisor& stream() { return player().supervisor(); }
    [[nodiscard]] const parent::StreamSupervisor& stream() const { return player().supervisor(); }
    [[nodiscard]] parent::WorkerProcess& worker() { return stream().worker(); }

    /// The line below the picture, for streams that share a window.
    void showCaption(bool isShown);
    /// Whether a recording of it runs: told with its state.
    void setRecording(bool isRecording);
    /// Whether this is the view that toolbar and keys belong to.
    void setCurrent(bool isCurrent);

Q_SIGNALS:
    void changed(); ///< ask again for everything above
    void firstPicture();
    void chosen();                        ///< clicked, or given the focus
    void menuWanted(const QPoint& place); ///< on the screen
    void doubleClicked();
    void wheelTurned(int steps); ///< away from the user: positive

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    [[nodiscard]] parent::StreamPlayer& player() const { return pictures_->player(); }
    void makeOverlay();
    void onStarted();
    void carryOut(const std::optional<SoundControl::Command>& command);
    void refresh();
    /// Says over the pictures that there will be no sound, for a while; only to who wants to hear some.
    void tellSoundProblem();

    StreamSettings settings_;
    QString url_;
    QString name_;
    SoundControl sound_;
    bool isUsersStart_ = false; ///< of the worker that is being started
    bool isSoundProblemTold_ = false;
    bool hasPicture_ = false;
    bool isRecording_ = false;
    int wheelAngle_ = 0; ///< turned, but not a whole step yet; eighths of a degree

    widgets::StreamWidget* pictures_; ///< with the worker
    QPushButton* restartButton_ = nullptr;
    QLabel* note_ = nullptr;
    ElidedLabel* caption_;
    QTimer noteTimer_;
};

} // namespace mediaworker::view
