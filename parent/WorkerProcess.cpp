#include "parent/WorkerProcess.h"

#include "parent/MaskedUrls.h"
#include "parent/ProcessGroup.h"
#include "parent/RandomName.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>
#include <QStandardPaths>

#include <algorithm>
#include <exception>
#include <type_traits>
#include <variant>

namespace mediaworker::parent {

namespace {

constexpr int kRecentLogLines = 100;
// What may wait unread in this process; more waits in the system's buffer, and then in the worker.
constexpr qint64 kLinkReadBufferBytes = 1 << 20;
constexpr int kKillWaitMs = 5000;
// How long the link may wait while the process's end is waited for.
constexpr int kAttendMs = 10;

// The worker writes this, and the type of the command as a raw byte, when it begins to carry out a command.
constexpr char kCommandLine[] = "Command from parent process: ";

QString defaultProgram() {
    const QString name = QStringLiteral("mediaworker");
    const QString beside = QStandardPaths::findExecutable(name, {QCoreApplication::applicationDirPath()});
    return beside.isEmpty() ? name : beside;
}

/// Whether what the worker connects to is a proxy that fetches for it. Of the others it hears their own
/// errors.
template <class Job>
bool isProxyPeer(const Job& job) {
    return !job.proxyUrl.isEmpty() && job.proxyType != QLatin1String("socks5") &&
           job.url.startsWith(QLatin1String("http:"));
}

} // namespace

WorkerProcess::WorkerProcess(QObject* parent) : QObject(parent) {
    commandTimer_.setSingleShot(true);
    commandTimer_.setTimerType(Qt::PreciseTimer);
    connect(&commandTimer_, &QTimer::timeout, this, &WorkerProcess::writeCommands);
    connectTimer_.setSingleShot(true);
    connect(&connectTimer_, &QTimer::timeout, this, &WorkerProcess::connectTimedOut);
}

WorkerProcess::~WorkerProcess() {
    if (process_ != nullptr) {
        process_->disconnect(this);
        process_->kill();
        process_->waitForFinished(kKillWaitMs);
    }
    dropLink();
}

bool WorkerProcess::start(const StreamJob& job) {
    if (isRunning()) {
        return fail(QStringLiteral("a worker runs already"));
    }
    frames_.reset();
    newOutput_.clear();
    try {
        frames_ = std::make_unique<FrameChannel>();
    } catch (const std::exception& e) {
        return fail(QString::fromLocal8Bit(e.what()));
    }
    url_ = job.url;
    // The worker's own rule.
    mode_ = job.url.startsWith(QLatin1String("file")) ? WorkerMode::LocalFile : WorkerMode::Stream;
    if (!listen()) {
        return false;
    }
    findings_.isProxyPeer = isProxyPeer(job);
    QStringList arguments{job.url, frames_->name(), serverName_};
    if (!job.proxyUrl.isEmpty()) {
        arguments << job.proxyUrl;
        if (!job.proxyType.isEmpty()) {
            arguments << job.proxyType;
        }
    }
    launch(arguments, optionsOf(job));
    return true;
}

bool WorkerProcess::start(const ExportJob& job) {
    if (isRunning()) {
        return fail(QStringLiteral("a worker runs already"));
    }
    frames_.reset();
    mode_ = WorkerMode::Export;
    if (!listen()) {
        return false;
    }
    findings_.isProxyPeer = isProxyPeer(job);
    // A confined worker makes its file before it knows whether there will be anything to write.
    newOutput_ = QFileInfo::exists(job.outputPath) ? QString() : QFileInfo(job.outputPath).absoluteFilePath();
    launch({QStringLiteral("export"), job.url, QString::number(job.durationMs), job.outputPath, serverName_},
           optionsOf(job), proxyVariables(job));
    return true;
}

bool WorkerProcess::fail(const QString& why) {
    error_ = why;
    startProblem_ = parent::startProblem({}, why);
    return false;
}

bool WorkerProcess::listen() {
    dropLink();
    reader_ = {};
    lines_ = {};
    commands_.clear();
    recentLog_.clear();
    findings_ = {};
    findings_.isConnected = false;
    findings_.hasShownPicture = false;
    startProblem_.reset();
    isSoundWanted_ = false;
    isFinishWanted_ = false;
    error_.clear();
    serverName_ = randomName();
    server_ = new QLocalServer(this);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    server_->setMaxPendingConnections(1);
    connect(server_, &QLocalServer::newConnection, this, &WorkerProcess::acceptLink);
    return server_->listen(serverName_) || fail(server_->errorString());
}

void WorkerProcess::launch(const QStringList& arguments, const QString& options,
                           const QMap<QString, QString>& variables) {
    // A command that runs the worker may have reasons of its own to stay.
    process_ = programPrefix_.isEmpty() ? makeMortalProcess(this) : new QProcess(this);
    process_->setStandardInputFile(QProcess::nullDevice());
    process_->setStandardOutputFile(QProcess::nullDevice());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QLatin1String(kOptionsVariable), options);
    for (const QMap<QString, QString>& changes : {variables, extraEnvironment_}) {
        for (auto variable = changes.cbegin(); variable != changes.cend(); ++variable) {
            if (variable.value().isNull()) {
                environment.remove(variable.key());
            } else {
                environment.insert(variable.key(), variable.value());
            }
        }
    }
    process_->setProcessEnvironment(environment);
    connect(process_, &QProcess::readyReadStandardError, this, &WorkerProcess::readLog);
    connect(process_, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            &WorkerProcess::processEnded);
    connect(process_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) {
            error_ = process_->errorString();
            startProblem_ = parent::startProblem(findings_.program, error_);
            connectTimer_.stop();
            dropLink();
            process_->deleteLater();
            process_ = nullptr;
            Q_EMIT startFailed(error_);
        }
    });

    group_ = std::make_unique<ProcessGroup>(memoryLimit_);
    connect(process_, &QProcess::started, this, [this] { group_->adopt(process_->processId()); });

    QStringList command = programPrefix_;
    command << (program_.isEmpty() ? defaultProgram() : program_) << arguments;
    const QString program = command.takeFirst();
    findings_.program = program;
    if (connectTimeout_ > std::chrono::milliseconds::zero()) {
        connectTimer_.start(connectTimeout_);
    }
    process_->start(program, command, QIODevice::ReadOnly);
}

bool WorkerProcess::isRunning() const {
    return process_ != nullptr;
}

bool WorkerProcess::isConnected() const {
    return greeted_ && linkOpen_;
}

qint64 WorkerProcess::processId() const {
    return process_ != nullptr ? process_->processId() : 0;
}

// The first connection is the worker's; the server goes, and with it its name, so that nobody comes second.
void WorkerProcess::acceptLink() {
    link_ = server_->nextPendingConnection();
    if (link_ == nullptr) {
        return;
    }
    link_->setParent(this);
    link_->setReadBufferSize(kLinkReadBufferBytes);
    connect(link_, &QLocalSocket::readyRead, this, &WorkerProcess::readLink);
    linkOpen_ = true;
    connect(link_, &QLocalSocket::disconnected, this, [this] {
        linkOpen_ = false;
        Q_EMIT linkClosed();
    });
    server_->disconnect(this);
    server_->close();
    server_->deleteLater();
    server_ = nullptr;
    connectTimer_.stop();
    readLink();
}

void WorkerProcess::readLink() {
    // A slot may close the link or start another worker: what is left of this one is nobody's business then.
    QLocalSocket* const link = link_;
    while (link != nullptr && link == link_ && link->bytesAvailable() > 0) {
        reader_.feed(link->readAll());
        while (link != nullptr && link == link_) {
            const std::optional<Message> message = reader_.next();
            if (!message) {
                break;
            }
            deliver(*message);
        }
    }
}

void WorkerProcess::deliver(const Message& message) {
    std::visit(
        [this](const auto& m) {
            using T = std::decay_t<decltype(m)>;
            if constexpr (std::is_same_v<T, Connected>) {
                greeted_ = true;
                findings_.isConnected = true;
                writeCommands();
                if (isFinishWanted_) {
                    finish();
                }
                Q_EMIT connected(m.pid);
            } else if constexpr (std::is_same_v<T, FrameShown>) {
                findings_.hasShownPicture = true;
                Q_EMIT frame(m.ptsMs);
            } else if constexpr (std::is_same_v<T, Fragment>) {
                Q_EMIT fragment(m.position, m.duration);
            } else if constexpr (std::is_same_v<T, AbsoluteTime>) {
                Q_EMIT absoluteTime(m.value);
            } else if constexpr (std::is_same_v<T, FormatChanged>) {
                Q_EMIT formatChanged();
            } else if constexpr (std::is_same_v<T, Progress>) {
                Q_EMIT progress(m.percent);
            } else {
                Q_EMIT malformed(m.type, m.size);
            }
        },
        message);
}

void WorkerProcess::readLog() {
    if (process_ != nullptr) {
        lines_.feed(process_->readAllStandardError(), [this](const QByteArray& line) { takeLogLine(line); });
    }
}

void WorkerProcess::takeLogLine(const QByteArray& line) {
    // Other text that a library left without a newline may stand before it.
    constexpr int kPrefix = sizeof(kCommandLine) - 1;
    if (line.size() > kPrefix && line.mid(line.size() - kPrefix - 1, kPrefix) == kCommandLine) {
        commands_.acknowledged(static_cast<std::uint8_t>(line.back()));
        writeCommands();
    }
    const QString text = maskedUrls(QString::fromUtf8(line));
    recentLog_ << text;
    if (recentLog_.size() > kRecentLogLines) {
        recentLog_.removeFirst();
    }
    const bool hadSoundProblem = !findings_.soundUnavailable.isEmpty();
    findings_.take(text, isSoundWanted_);
    Q_EMIT logLine(text);
    if (!hadSoundProblem && !findings_.soundUnavailable.isEmpty()) {
        Q_EMIT soundUnavailable(findings_.soundUnavailable);
    }
}

bool WorkerProcess::acceptsCommands() const {
    return isRunning() && mode_ != WorkerMode::Export;
}

bool WorkerProcess::setVolume(int percent) {
    const bool queued =
        acceptsCommands() && commands_.pushVolume(static_cast<std::uint32_t>(std::clamp(percent, 0, 100)));
    isSoundWanted_ = isSoundWanted_ || queued;
    writeCommands();
    return queued;
}

bool WorkerProcess::pause() {
    const bool queued = acceptsCommands() && commands_.pushPause();
    writeCommands();
    return queued;
}

bool WorkerProcess::resume() {
    const bool queued = acceptsCommands() && commands_.pushResume();
    writeCommands();
    return queued;
}

bool WorkerProcess::stopAudio() {
    const bool queued = acceptsCommands() && commands_.pushStopAudio();
    isSoundWanted_ = isSoundWanted_ && !queued;
    writeCommands();
    return queued;
}

bool WorkerProcess::finish() {
    isFinishWanted_ = isRunning() && mode_ == WorkerMode::Export;
    return isFinishWanted_ && (!isConnected() || writeRaw(encodePacket(MessageType::Finish)));
}

void WorkerProcess::writeCommands() {
    if (!isConnected()) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    const QByteArray bytes = commands_.take(now);
    if (!bytes.isEmpty()) {
        writeRaw(bytes);
    }
    if (const auto deadline = commands_.deadline()) {
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*deadline - now);
        commandTimer_.start(std::max(wait, std::chrono::milliseconds::zero()));
    } else {
        commandTimer_.stop();
    }
}

bool WorkerProcess::writeRaw(const QByteArray& bytes) {
    if (!linkOpen_) {
        return false;
    }
    const bool written = link_->write(bytes) == bytes.size();
    link_->flush();
    return written;
}

void WorkerProcess::disconnectLink() {
    if (!findings_.isConnected.value_or(true)) {
        findings_.isConnected.reset(); // it was not given the time
    }
    connectTimer_.stop();
    dropLink();
}

// The socket may be in the middle of a signal, so it dies later; its descriptor closes now.
void WorkerProcess::dropLink() {
    commandTimer_.stop();
    greeted_ = false;
    linkOpen_ = false;
    if (link_ != nullptr) {
        link_->disconnect(this);
        link_->abort();
        link_->deleteLater();
        link_ = nullptr;
    }
    if (server_ != nullptr) {
        server_->disconnect(this);
        server_->close();
        server_->deleteLater();
        server_ = nullptr;
    }
}

void WorkerProcess::terminate() {
    if (process_ != nullptr) {
        process_->terminate();
    }
}

void WorkerProcess::kill() {
    if (process_ != nullptr) {
        process_->kill();
    }
}

bool WorkerProcess::waitForFinished(std::chrono::milliseconds timeout) {
    const QPointer<QProcess> process = process_;
    const QDeadlineTimer deadline(std::max(timeout, std::chrono::milliseconds(-1)).count());
    // A slot may start the next worker, whose end is not waited for.
    while (process && process == process_) {
        attendLink();
        if (!process || process != process_) {
            break;
        }
        if (deadline.hasExpired()) {
            return process->waitForFinished(0);
        }
        const qint64 left = deadline.isForever() ? kAttendMs : deadline.remainingTime();
        process->waitForFinished(static_cast<int>(std::clamp<qint64>(left, 0, kAttendMs)));
    }
    return !process || process->error() != QProcess::FailedToStart;
}

void WorkerProcess::attendLink() {
    if (server_ != nullptr) {
        server_->waitForNewConnection(0); // which announces it
    }
    if (linkOpen_) {
        link_->waitForReadyRead(0); // the same
    }
    readLink();
    writeCommands();
}

void WorkerProcess::processEnded(int exitCode, QProcess::ExitStatus status) {
    readLog();
    lines_.finish([this](const QByteArray& line) { takeLogLine(line); });
    // The worker may have connected, spoken and gone before anybody looked.
    if (server_ != nullptr) {
        server_->waitForNewConnection(0);
    }
    // The last messages may still lie in the system's buffer. A worker that is gone cannot add to them.
    while (linkOpen_ && link_->waitForReadyRead(0)) {
        readLink();
    }
    readLink();
    connectTimer_.stop();
    dropLink();
    process_->deleteLater();
    process_ = nullptr;
    if (mode_ == WorkerMode::LocalFile) {
        findings_.localFile = lookAtLocalFile(url_);
    }
    if (frames_ != nullptr) {
        frames_->workerEnded();
    }
    if (!newOutput_.isEmpty() && QFileInfo(newOutput_).isFile() && QFileInfo(newOutput_).size() == 0) {
        QFile::remove(newOutput_);
    }
    Q_EMIT finished(exitCode, status == QProcess::CrashExit);
}

} // namespace mediaworker::parent
