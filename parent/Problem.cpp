#include "parent/Problem.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace mediaworker::parent {

namespace {

constexpr int kHttpProxyWantsUser = 407;
// Of a worker, in all modes where there is no response.
constexpr int kFailed = 1;

/// The worker's words for a certificate that is not trusted; the first reason follows.
constexpr char kUntrusted[] = "untrusted certificate: ";

QString withDetail(const QString& words, const QString& detail) {
    return detail.isEmpty() ? words : words + QStringLiteral(": ") + detail;
}

Problem problem(ExitCause cause, const QString& text) {
    return {.cause = cause, .text = text};
}

/// What the exit code says, to who knows no more.
Problem byCode(WorkerMode mode, int exitCode) {
    Problem unknown = problem(ExitCause::Unknown, QStringLiteral("unknown exit code %1").arg(exitCode));
    if (mode == WorkerMode::Export) {
        switch (exitCode) {
        case 0:
            return problem(ExitCause::Complete, QStringLiteral("the file is complete"));
        case 1:
            return problem(ExitCause::Failed, QStringLiteral("the worker told no reason"));
        default:
            return unknown;
        }
    }
    const bool isFile = mode == WorkerMode::LocalFile;
    switch (exitCode) {
    case 0:
        return problem(ExitCause::LinkClosed, QStringLiteral("the link to the parent was closed"));
    case 1:
        return isFile ? problem(ExitCause::Failed,
                                QStringLiteral("the arguments are wrong, or the worker crashed"))
                      : problem(ExitCause::NotAStream,
                                QStringLiteral("the received data is not an FLV stream, the arguments are "
                                               "wrong, or the worker crashed"));
    case 2:
        return isFile ? problem(ExitCause::EndOfFile,
                                QStringLiteral("the file is at its end, or cannot be opened or read"))
                      : problem(ExitCause::NoPicture, QStringLiteral("no picture arrived in time"));
    case 3:
        return problem(ExitCause::EndOfStream, QStringLiteral("the server ended the stream"));
    case 4:
        return problem(ExitCause::PicturesEnded,
                       QStringLiteral("the pictures ended or could not be decoded"));
    default:
        return unknown;
    }
}

/// The response failed, and that code is one of those that its end leads to.
bool isEndedByResponse(WorkerMode mode, int exitCode, const WorkerFindings& findings) {
    const bool isAtEnd =
        mode == WorkerMode::Stream ? exitCode == 3 : mode == WorkerMode::Export && exitCode <= 1;
    return isAtEnd && findings.isResponseFailed();
}

Problem statusProblem(int status, const QString& reason) {
    constexpr int kFirstError = 400;
    if (status == kHttpProxyWantsUser) {
        return problem(ExitCause::ProxyPassword,
                       QStringLiteral("the proxy wants another user name or password"));
    }
    const QString words = (QStringLiteral("the server answered %1 ").arg(status) + reason).trimmed();
    return problem(ExitCause::HttpStatus, status < kFirstError
                                              ? words + QStringLiteral(", a redirection that is not followed")
                                              : words);
}

Problem tlsProblem(const QString& text) {
    const QLatin1String untrusted(kUntrusted);
    const int at = text.indexOf(untrusted);
    const QString why = at < 0 ? text
                               : QStringLiteral("the server's certificate is not trusted: ") +
                                     text.mid(at + untrusted.size());
    return problem(ExitCause::TlsFailure, withDetail(QStringLiteral("no secure connection"), why));
}

/// Of the connection to a proxy that everything is fetched from.
std::optional<Problem> proxyProblem(const QString& error, const QString& text, bool isProxyPeer) {
    const auto isError = [&error](const char* name) { return error == QLatin1String(name); };
    if (isError("ProxyAuthenticationRequiredError")) {
        return statusProblem(kHttpProxyWantsUser, {});
    }
    if (isProxyPeer && isError("ConnectionRefusedError")) {
        return problem(
            ExitCause::ProxyFailure,
            QStringLiteral("the proxy cannot be reached: nothing listens at its address and port"));
    }
    if (isProxyPeer && isError("HostNotFoundError")) {
        return problem(ExitCause::ProxyFailure,
                       QStringLiteral("the proxy cannot be reached: its name is unknown"));
    }
    // That of a SOCKS5 proxy has no error of its own.
    const bool isProxys =
        error.startsWith(QLatin1String("Proxy")) || text.startsWith(QLatin1String("Connection to proxy"));
    return isProxys ? std::optional(problem(ExitCause::ProxyFailure,
                                            withDetail(QStringLiteral("the proxy failed"), text)))
                    : std::nullopt;
}

Problem networkProblem(const QString& error, const QString& text, bool isProxyPeer) {
    const auto isError = [&error](const char* name) { return error == QLatin1String(name); };
    if (const auto proxys = proxyProblem(error, text, isProxyPeer)) {
        return *proxys;
    }
    if (isError("ConnectionRefusedError")) {
        return problem(ExitCause::ConnectionRefused,
                       QStringLiteral("connection refused: nothing listens at that address and port"));
    }
    if (isError("RemoteHostClosedError")) {
        return problem(ExitCause::ConnectionLost,
                       QStringLiteral("connection lost: it was closed before the answer was complete"));
    }
    if (isError("HostNotFoundError")) {
        return problem(ExitCause::UnknownHost, withDetail(QStringLiteral("unknown host"), text));
    }
    if (isError("TimeoutError")) {
        return problem(ExitCause::NetworkTimeout, QStringLiteral("the server cannot be reached: it did not "
                                                                 "answer in time"));
    }
    if (isError("SslHandshakeFailedError")) {
        return tlsProblem(text);
    }
    return problem(ExitCause::NetworkFailure, withDetail(QStringLiteral("network failure"), text));
}

Problem responseProblem(const WorkerFindings& findings) {
    Problem found = findings.httpStatus ? statusProblem(*findings.httpStatus, findings.httpReason)
                                        : networkProblem(findings.networkError, findings.networkErrorText,
                                                         findings.isProxyPeer);
    found.httpStatus = findings.httpStatus;
    found.networkError = findings.networkError;
    return found;
}

Problem fileProblem(const LocalFile& file) {
    switch (file.state) {
    case LocalFileState::Missing:
        return problem(ExitCause::FileMissing, QStringLiteral("there is no file %1").arg(file.path));
    case LocalFileState::Folder:
        return problem(ExitCause::FileUnreadable,
                       QStringLiteral("%1 is a folder, not a file").arg(file.path));
    case LocalFileState::Unreadable:
        return problem(ExitCause::FileUnreadable,
                       QStringLiteral("the file %1 may not be read").arg(file.path));
    case LocalFileState::Readable:
        return problem(ExitCause::FileUnreadable,
                       QStringLiteral("the file %1 is in no format that is known").arg(file.path));
    case LocalFileState::Unknown:
        break;
    }
    return problem(ExitCause::FileUnreadable, QStringLiteral("the file cannot be opened or read"));
}

/// Of a local file, after the time-out that is its only end.
Problem endOfFile(const WorkerFindings& findings) {
    if (findings.hasShownPicture.value_or(false)) {
        return problem(ExitCause::EndOfFile, QStringLiteral("the file is at its end"));
    }
    if (findings.isFileRefused) {
        return fileProblem(findings.localFile);
    }
    return findings.localFile.state == LocalFileState::Readable
               ? problem(ExitCause::NoVideo, QStringLiteral("the file %1 has no video that can be shown")
                                                 .arg(findings.localFile.path))
               : byCode(WorkerMode::LocalFile, 2);
}

/// Another program does not speak so.
bool isKnownByItsWords(const WorkerFindings& findings) {
    return findings.recordedMs || findings.isResponseOver || findings.isFileRefused;
}

/// Of a program that never spoke to this one, or did not say why it ended.
std::optional<Problem> failureOf(WorkerMode mode, int exitCode, const WorkerFindings& findings) {
    const bool isKnownEnd = mode == WorkerMode::Export ? exitCode == 1 : exitCode >= kFailed && exitCode <= 4;
    const bool isStranger = findings.isConnected == false && !isKnownByItsWords(findings);
    if (isStranger && (exitCode <= kFailed || !isKnownEnd)) {
        const QString program = findings.program.isEmpty() ? QStringLiteral("the program") : findings.program;
        return problem(ExitCause::WorkerUnusable,
                       program + QStringLiteral(" is no mediaworker, or cannot run here: it ended before it "
                                                "connected"));
    }
    const bool isSilent = findings.isConnected == true && exitCode == kFailed && mode != WorkerMode::Export;
    return isSilent ? std::optional(problem(
                          ExitCause::Crashed,
                          QStringLiteral("the worker ended without a word, as one does that crashed")))
                    : std::nullopt;
}

/// What the log told before exit code 1.
std::optional<Problem> toldFailure(WorkerMode mode, const WorkerFindings& findings) {
    if (!findings.streamError.isEmpty()) {
        return problem(ExitCause::NotAStream,
                       findings.hasShownPicture.value_or(false)
                           ? QStringLiteral("the stream is damaged: ") + findings.streamError
                           : QStringLiteral("the received data is not an FLV stream"));
    }
    if (!findings.writeError.isEmpty()) {
        return problem(ExitCause::FileNotWritable,
                       (mode == WorkerMode::Export ? QStringLiteral("the file cannot be written: ")
                                                   : QStringLiteral("the pictures cannot be handed over: ")) +
                           findings.writeError);
    }
    if (!findings.otherFailure.isEmpty()) {
        return problem(ExitCause::Failed,
                       QStringLiteral("the worker cannot go on: ") + findings.otherFailure);
    }
    return std::nullopt;
}

Problem endOfStream(const WorkerFindings& findings) {
    return problem(ExitCause::EndOfStream,
                   findings.isResponseOver && findings.hasShownPicture == false
                       ? QStringLiteral("the server ended the stream before its first picture")
                       : QStringLiteral("the server ended the stream"));
}

Problem orderlyEnd(WorkerMode mode, int exitCode, const WorkerFindings& findings) {
    if (mode == WorkerMode::LocalFile && exitCode == 2) {
        return endOfFile(findings);
    }
    if (mode == WorkerMode::Stream && exitCode == 3) {
        return endOfStream(findings);
    }
    if (mode == WorkerMode::Stream && exitCode == 2 && findings.hasShownPicture.value_or(false)) {
        return problem(ExitCause::NoPicture, QStringLiteral("the pictures stopped coming"));
    }
    if (mode == WorkerMode::Export && exitCode == kFailed && findings.isResponseOver) {
        return problem(ExitCause::EndOfStream,
                       QStringLiteral("the server ended the stream before its first picture"));
    }
    return byCode(mode, exitCode);
}

} // namespace

Problem problemOf(WorkerMode mode, int exitCode, bool crashed, const WorkerFindings& findings) {
    if (crashed) {
        return problem(ExitCause::Killed, QStringLiteral("the worker was killed"));
    }
    if (isEndedByResponse(mode, exitCode, findings)) {
        Problem found = responseProblem(findings);
        if (mode == WorkerMode::Export && exitCode == 0) {
            found.text.prepend(QStringLiteral("the file is complete, but the stream broke off: "));
        }
        return found;
    }
    if (exitCode != 0 && !findings.picturesUnavailable.isEmpty()) {
        return problem(ExitCause::PicturesUnavailable,
                       (mode == WorkerMode::Export ? QStringLiteral("the pictures cannot be recorded: ")
                                                   : QStringLiteral("the pictures cannot be shown: ")) +
                           findings.picturesUnavailable);
    }
    if (exitCode == kFailed) {
        if (const auto told = toldFailure(mode, findings)) {
            return *told;
        }
    }
    if (const auto failure = failureOf(mode, exitCode, findings)) {
        return *failure;
    }
    return orderlyEnd(mode, exitCode, findings);
}

QString responseFailure(const WorkerFindings& findings) {
    return findings.isResponseFailed() ? responseProblem(findings).text : QString();
}

Problem startProblem(const QString& program, const QString& why) {
    const QString begin = QStringLiteral("the worker cannot be started: ");
    if (program.isEmpty()) {
        return problem(ExitCause::Failed, begin + why);
    }
    const QFileInfo file(program);
    const bool isPath = program.contains(u'/') || file.isAbsolute();
    const QString shown = QDir::toNativeSeparators(program);
    if (isPath && !file.exists()) {
        return problem(ExitCause::WorkerMissing, begin + QStringLiteral("there is no file ") + shown);
    }
    if (!isPath && QStandardPaths::findExecutable(program).isEmpty()) {
        return problem(ExitCause::WorkerMissing,
                       begin +
                           QStringLiteral("there is no %1 beside this program, or in the PATH").arg(shown));
    }
    if (isPath && !(file.isFile() && file.isExecutable())) {
        return problem(ExitCause::WorkerUnusable,
                       begin + shown + QStringLiteral(" is not a program that may be run"));
    }
    return problem(ExitCause::WorkerUnusable, begin + why);
}

Problem notConnected() {
    return problem(ExitCause::NotConnected, QStringLiteral("the worker did not connect"));
}

Problem stoodStill() {
    return problem(ExitCause::StoodStill, QStringLiteral("the worker stood still"));
}

Problem unlinked() {
    return problem(ExitCause::StoodStill, QStringLiteral("the worker closed its link, but did not end"));
}

} // namespace mediaworker::parent
