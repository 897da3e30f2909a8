#pragma once

#include "parent/PlaybackMonitor.h"
#include "parent/Problem.h"
#include "parent/StreamSupervisor.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <optional>

namespace mediaworker::parent {

/// One stream for somebody who watches it: it is kept up by a supervisor, followed by a monitor, and can be
/// paused, heard and muted at any time, also before it is played. It shows nothing: for widgets and items
/// that do.
///
/// Lives in a thread with an event loop; all functions and signals belong to that thread.
class StreamPlayer : public QObject {
    Q_OBJECT

public:
    /// Plays nothing yet, and would be heard in full.
    explicit StreamPlayer(QObject* parent = nullptr);
    ~StreamPlayer() override;
    StreamPlayer(const StreamPlayer&) = delete;
    StreamPlayer& operator=(const StreamPlayer&) = delete;

    /// When live streams are started again, from the next play() on. Others are at their end then.
    void setPolicy(const ReconnectPolicy& policy) { policy_ = policy; }

    /// Plays that, whatever was played before. What cannot be played is a problem like any other.
    /// An empty URL only ends what was played.
    void play(const StreamJob& job);
    /// The newest of the same again, in a new worker and now; also after stop().
    void restart();
    /// Asks the worker to end, for good.
    void stop();

    void setPaused(bool isPaused); ///< the pictures stand still, or go on
    void setVolume(int percent);   ///< 0 to 100; heard unless muted
    void setMuted(bool isMuted);   ///< muted, the sound device is closed
    [[nodiscard]] bool isPaused() const noexcept { return supervisor_.isPaused(); } ///< as setPaused() had it
    [[nodiscard]] int volume() const noexcept { return volumePercent_; } ///< as setVolume() had it: per cent
    [[nodiscard]] bool isMuted() const noexcept { return isMuted_; }     ///< as setMuted() had it

    /// What it does now.
    [[nodiscard]] PlaybackState state() const;
    /// Why no worker plays, in words without a full stop and without passwords; empty while one does.
    [[nodiscard]] QString problemText() const { return problem().text; }
    /// The same with what programs compare.
    [[nodiscard]] const Problem& problem() const noexcept;
    /// While it waits to be started again: how long still.
    [[nodiscard]] std::optional<std::chrono::milliseconds> untilNextAttempt() const;
    /// Why there is no sound, of a stream that has some and whose sound is wanted; empty when there is none
    /// of that.
    [[nodiscard]] const QString& soundProblem() const noexcept;

    /// The newest picture is there; may be null. See NewestPicture, and frame().
    [[nodiscard]] FrameChannel* frames() const noexcept { return supervisor_.frames(); }
    /// Figures of the present worker, or the last.
    [[nodiscard]] const PlaybackMonitor& monitor() const noexcept { return monitor_; }
    /// For its signals and its worker's.
    [[nodiscard]] StreamSupervisor& supervisor() noexcept { return supervisor_; }
    /// @overload
    [[nodiscard]] const StreamSupervisor& supervisor() const noexcept { return supervisor_; }

Q_SIGNALS:
    /// A new picture can be read from frames().
    void frame();
    /// What was announced by frame() and not read yet is about to go.
    void aboutToStart();
    /// Ask again for everything above: at once when something has changed, and several times a second while
    /// figures do.
    void changed();

private:
    void onStarted();
    void onEnd();
    void onFrame(qint64 ptsMs);
    void applySound();

    StreamJob job_;
    ReconnectPolicy policy_;
    PlaybackMonitor monitor_;
    Problem refusal_;       ///< of a URL that no worker was started for
    bool isPlayed_ = false; ///< job_ is, by the supervisor
    int volumePercent_ = 100;
    bool isMuted_ = false;
    QTimer refreshTimer_;

    StreamSupervisor supervisor_; ///< last: it may speak while it goes
};

} // namespace mediaworker::parent
