#pragma once

#include "parent/ReconnectPolicy.h"
#include "parent/WorkerProcess.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <memory>
#include <optional>

namespace mediaworker::parent {

/// What a supervised stream does, as far as its workers go.
enum class StreamState {
    Idle,    ///< nothing was started yet
    Running, ///< a worker is there
    Waiting, ///< for the next attempt
    Ended,   ///< there will be no further attempt
};

/// Keeps one stream up: starts a worker, and another one when it has ended, as its policy says. What the user
/// wants (volume, pause) goes to each of them, and the last picture stays readable while none plays.
///
/// It also ends a worker that will not end by itself: one that never connects, that closed its link but lives
/// on, or that says nothing for longer than it may wait for a picture.
///
/// Lives in a thread with an event loop; all functions and signals belong to that thread.
class StreamSupervisor : public QObject {
    Q_OBJECT

public:
    /// Plays nothing yet.
    explicit StreamSupervisor(QObject* parent = nullptr);
    ~StreamSupervisor() override;
    StreamSupervisor(const StreamSupervisor&) = delete;
    StreamSupervisor& operator=(const StreamSupervisor&) = delete;

    /// For the ends from now on. Default: ReconnectPolicy{}.
    void setPolicy(const ReconnectPolicy& policy) { rule_ = ReconnectRule(policy); }

    /// Plays that, whatever was played before; a worker that runs is killed. Pause and volume stay as they
    /// are.
    void start(const StreamJob& job);
    /// Plays the same again, now.
    void retry();
    /// Asks the worker to end, and makes no further attempt. A worker that does not end within two seconds is
    /// killed.
    void stop();

    // Of this worker and those after it.

    /// Starts the sound if it is off. 0 to 100.
    void setVolume(int percent);
    void stopAudio();              ///< until the next setVolume()
    void setPaused(bool isPaused); ///< the pictures stand still, or go on

    /// What it is about now.
    [[nodiscard]] StreamState state() const noexcept { return state_; }
    /// As setPaused() had it.
    [[nodiscard]] bool isPaused() const noexcept { return isPaused_; }
    /// Of the workers since start() or retry(), counting from 1.
    [[nodiscard]] int attempt() const noexcept { return attempt_; }
    /// While it waits: how long still.
    [[nodiscard]] std::optional<std::chrono::milliseconds> untilNextAttempt() const;
    /// Why the last worker ended, in words without a full stop; empty while one runs.
    [[nodiscard]] const QString& endWords() const noexcept { return end_.text; }
    /// The same with what programs compare. `stop()` is none: its cause is LinkClosed.
    [[nodiscard]] const Problem& endProblem() const noexcept { return end_; }

    /// This object killed the last worker, since it would not have ended by itself.
    [[nodiscard]] bool hasKilledWorker() const noexcept { return hasKilledWorker_; }

    /// The newest picture is there, of the present worker or the one before; null before the first start.
    [[nodiscard]] FrameChannel* frames() const noexcept;

    /// The present worker, or the last: for its settings and its signals. Starting and ending it are this
    /// object's.
    [[nodiscard]] WorkerProcess& worker() noexcept { return worker_; }
    /// @overload
    [[nodiscard]] const WorkerProcess& worker() const noexcept { return worker_; }

Q_SIGNALS:
    /// A process is made next; started() follows, or waiting() or ended() when it cannot be.
    void aboutToStart();
    /// A worker was started; WorkerProcess's signals are about this one from here on.
    void started(int attempt);
    /// The worker has ended, and another one is started after `delayMs`.
    void waiting(const QString& why, qint64 delayMs);
    /// There will be no further attempt: stop(), a final reason, or a policy that says "never".
    void ended(const QString& why);

private:
    void attemptNow();
    void onSign();
    void onFinished(int exitCode, bool crashed);
    void onEnd(const Problem& why);
    void endWorker(const Problem& why);

    StreamJob job_;
    ReconnectRule rule_;
    StreamState state_ = StreamState::Idle;
    int attempt_ = 0;
    Problem end_;
    std::optional<Problem> stopReason_; ///< why this side ended the worker; empty when it did not
    bool hasKilledWorker_ = false;
    bool isPaused_ = false;
    std::optional<int> volumePercent_; ///< empty: no sound

    bool hasPicture_ = false; ///< the present worker has shown one
    std::chrono::steady_clock::time_point firstPictureAt_{};
    std::chrono::steady_clock::time_point lastPictureAt_{};
    std::unique_ptr<FrameChannel> shown_; ///< of the worker before, until the present one has a picture

    QTimer nextAttempt_;
    QTimer silence_;
    QTimer unlinked_; ///< for a worker whose link is closed, but that goes on

    WorkerProcess worker_; ///< last: it may speak while it goes
};

/// A stream that goes on: neither a file nor, by its URL, a recording.
[[nodiscard]] bool isLive(const QString& url);

/// How long a worker that plays this may wait for a picture before it ends by itself.
[[nodiscard]] std::chrono::milliseconds longestFrameWait(const QString& url);

} // namespace mediaworker::parent
