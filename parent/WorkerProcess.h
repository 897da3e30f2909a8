#pragma once

#include "parent/CommandQueue.h"
#include "parent/ExitReason.h"
#include "parent/FrameChannel.h"
#include "parent/Job.h"
#include "parent/LineSplitter.h"
#include "parent/MessageReader.h"
#include "parent/Problem.h"
#include "parent/WorkerFindings.h"

#include <QMap>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

class QLocalServer;
class QLocalSocket;

namespace mediaworker::parent {

class ProcessGroup;

/// One worker process and the link to it.
///
/// Survives whatever the worker does: it may never connect, send garbage, or die at any moment. What it says
/// is read as it comes and kept in bounded buffers. Lives in a thread with an event loop; all functions and
/// signals belong to that thread. Slots may call anything here, and may delete the object with deleteLater().
///
/// A worker ends with its link, and so with this process. One that has none yet, or does not look at it, also
/// ends with this process where the system has the means: on Windows always; on Linux if the main thread has
/// started it, without a program prefix.
///
/// Without the event loop nothing happens, but for what waitForFinished() does in its place: it accepts the
/// worker, writes the commands and emits all signals of the link, the log and the end. connectTimedOut()
/// comes from the event loop alone. Whenever the worker's end is noticed, what it had sent until then is
/// delivered before finished(), also where nobody had accepted its connection yet.
class WorkerProcess : public QObject {
    Q_OBJECT

public:
    /// Starts nothing yet.
    explicit WorkerProcess(QObject* parent = nullptr);
    /// Kills a worker that still runs, waits for its end, and removes everything that was shared with it.
    ~WorkerProcess() override;
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;

    /// The worker's program file. Default: "mediaworker" beside this program's own file, else in the PATH.
    void setProgram(const QString& path) { program_ = path; }
    /// A command that runs the worker (the worker's program and arguments follow it), for instance to put it
    /// into a namespace of its own.
    void setProgramPrefix(const QStringList& command) { programPrefix_ = command; }
    /// Variables that the worker gets in addition to this process's environment; a null value takes one away.
    ///
    /// What the job decides, the worker is told by MEDIAWORKER_OPTIONS, in place of what this process was
    /// given. Only a MEDIAWORKER_OPTIONS among these variables comes before the job: for options that this
    /// library does not know. A null one starts a worker without any, as programs of old do.
    void setExtraEnvironment(const QMap<QString, QString>& variables) { extraEnvironment_ = variables; }
    /// How long the worker has to connect before connectTimedOut(). Zero: for ever. Default: 10 s.
    void setConnectTimeout(std::chrono::milliseconds timeout) { connectTimeout_ = timeout; }

    /// The most memory that a worker may take, in bytes; one that wants more ends with code 1. Zero: as much
    /// as there is, which is the default. Windows only.
    void setMemoryLimit(std::uint64_t bytes) { memoryLimit_ = bytes; }

    /// Starts a worker. False with errorString() when the link or the frame channel cannot be made, or a
    /// worker runs already; a program that cannot be run is reported by startFailed(). An object can be used
    /// for one worker after the other.
    [[nodiscard]] bool start(const StreamJob& job);
    /// @overload
    [[nodiscard]] bool start(const ExportJob& job);

    /// From start() until just before finished() or startFailed(). Slots of these may start the next worker.
    [[nodiscard]] bool isRunning() const;
    /// The link stands and the worker has said so.
    [[nodiscard]] bool isConnected() const;
    /// Of the last start().
    [[nodiscard]] WorkerMode mode() const noexcept { return mode_; }
    /// Why the last start failed; empty when it did not.
    [[nodiscard]] const QString& errorString() const noexcept { return error_; }
    /// The same as everybody tells it; empty when it did not fail.
    [[nodiscard]] const std::optional<Problem>& startProblem() const noexcept { return startProblem_; }
    /// Why the worker ended, with the arguments of finished().
    [[nodiscard]] Problem problem(int exitCode, bool crashed) const {
        return problemOf(mode_, exitCode, crashed, findings_);
    }
    /// The started process (of the program prefix, if there is one), 0 when none runs.
    [[nodiscard]] qint64 processId() const;
    /// Name of the local socket that the worker of the last start() was given.
    [[nodiscard]] const QString& serverName() const noexcept { return serverName_; }
    /// The last lines of the worker's standard error, newest last. Here and in logLine(), URLs have no user
    /// names and passwords: maskedUrls().
    [[nodiscard]] const QStringList& recentLog() const noexcept { return recentLog_; }
    /// What all of its log has told about things that went wrong: for exitReason() and exitCause().
    [[nodiscard]] const WorkerFindings& findings() const noexcept { return findings_; }

    /// The pictures of a stream job, until the next start() or destruction; null for an export.
    [[nodiscard]] FrameChannel* frames() const noexcept { return frames_.get(); }
    /// The same for the caller to keep, for as long as its last picture is wanted. Only when no worker runs.
    [[nodiscard]] std::unique_ptr<FrameChannel> takeFrames() noexcept { return std::move(frames_); }

    // Commands. Queued until the worker is connected, and then written at a pace that it can follow. False
    // when no worker plays, or it does not take commands any more and the queue is full.

    /// Starts the sound if it is off. 0 to 100.
    bool setVolume(int percent);
    /// Stops pictures and sound; the stream is still received, as far as the worker has room.
    bool pause();
    /// Goes on after a pause.
    bool resume();
    /// Closes the sound device, until the next setVolume().
    bool stopAudio();

    /// Asks an export to close its file and to end: with 0 when that worked, as finished() tells. One that
    /// has not connected yet is asked as soon as it has. False when no export runs.
    bool finish();

    /// Writes bytes to the link at once, past the command queue: to try a worker with packets that no parent
    /// would send. False when there is no link.
    bool writeRaw(const QByteArray& bytes);

    /// Closes the link: a worker ends by itself at that, at once. An export's file is left unfinished.
    void disconnectLink();
    /// Asks the system to end the worker (SIGTERM on POSIX; Windows has nothing a worker would hear).
    void terminate();
    /// Ends the worker at once. finished() comes from the event loop, as ever.
    void kill();
    /// Waits for the worker's end, and meanwhile for all that it says, without the event loop. False when the
    /// time is over, or the program could not be run. A negative time does not end.
    bool waitForFinished(std::chrono::milliseconds timeout);

Q_SIGNALS:
    void connected(qint64 pid);                      ///< process id as the worker sees it
    void frame(qint64 ptsMs);                        ///< a picture's time has come: read it from frames()
    void fragment(qint64 position, qint64 duration); ///< place in a recording, in units of the server
    void absoluteTime(qint64 value);                 ///< of the stream, in units of the server
    void formatChanged();                            ///< the picture size is new, or the first one is known
    void progress(int percent);                      ///< of an export
    /// There will be no sound, though the stream has some: its codec and why, or that there is no device
    /// (told when setVolume() was called). Once for a worker; its pictures go on.
    void soundUnavailable(const QString& reason);
    void malformed(int type, int size);   ///< a message that a worker does not send; it was skipped
    void logLine(const QString& line);    ///< one line of the worker's standard error
    void linkClosed();                    ///< the worker has closed its end, while it was still seen alive
    void connectTimedOut();               ///< no link within the connect time-out; the worker still runs
    void startFailed(const QString& why); ///< the program could not be run; no finished() follows
    /// The worker is gone; nothing comes after this. `exitCode` means nothing when `crashed`.
    void finished(int exitCode, bool crashed);

private:
    [[nodiscard]] bool listen();
    void launch(const QStringList& arguments, const QString& options,
                const QMap<QString, QString>& variables = {});
    [[nodiscard]] bool fail(const QString& why);
    void acceptLink();
    /// Takes what the system has for the link, without an event loop.
    void attendLink();
    void readLink();
    void deliver(const Message& message);
    void readLog();
    void takeLogLine(const QByteArray& line);
    void writeCommands();
    [[nodiscard]] bool acceptsCommands() const;
    void processEnded(int exitCode, QProcess::ExitStatus status);
    void dropLink();

    std::uint64_t memoryLimit_ = 0;
    std::unique_ptr<ProcessGroup> group_; ///< of the worker that was started last
    QString newOutput_; ///< an export's file that was not there before; removed where it stays empty
    QString program_;
    QStringList programPrefix_;
    QMap<QString, QString> extraEnvironment_;
    std::chrono::milliseconds connectTimeout_{10000};

    WorkerMode mode_ = WorkerMode::Stream;
    QString serverName_;
    QString url_;
    QString error_;
    std::optional<Problem> startProblem_;
    QStringList recentLog_;
    WorkerFindings findings_;
    bool isSoundWanted_ = false;
    bool isFinishWanted_ = false;

    std::unique_ptr<FrameChannel> frames_;
    QProcess* process_ = nullptr;    ///< a child of this object
    QLocalServer* server_ = nullptr; ///< a child of this object
    QLocalSocket* link_ = nullptr;   ///< a child of this object once accepted
    bool linkOpen_ = false;
    bool greeted_ = false; ///< the worker's first message has arrived: it takes commands
    MessageReader reader_;
    LineSplitter lines_;
    CommandQueue commands_;
    QTimer commandTimer_;
    QTimer connectTimer_;
};

} // namespace mediaworker::parent
