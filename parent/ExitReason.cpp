#include "parent/ExitReason.h"

#include <algorithm>
#include <iterator>

namespace mediaworker::parent {

namespace {

QString streamReason(int exitCode) {
    switch (exitCode) {
    case 0:
        return QStringLiteral("the link to the parent was closed");
    case 1:
        return QStringLiteral(
            "the received data is not an FLV stream, the arguments are wrong, or the worker "
            "crashed");
    case 2:
        return QStringLiteral("no picture arrived in time");
    case 3:
        return QStringLiteral("the server ended the stream or could not deliver it");
    case 4:
        return QStringLiteral("the pictures ended or could not be decoded");
    default:
        return {};
    }
}

QString localFileReason(int exitCode) {
    switch (exitCode) {
    case 1:
        return QStringLiteral("the arguments are wrong, or the worker crashed");
    case 2:
        return QStringLiteral("the file is at its end, or cannot be opened or read");
    default:
        return streamReason(exitCode);
    }
}

QString exportReason(int exitCode) {
    switch (exitCode) {
    case 0:
        return QStringLiteral("the file is complete");
    case 1:
        return QStringLiteral("the export failed, or the link to the parent was closed");
    default:
        return {};
    }
}

QString reasonOf(WorkerMode mode, int exitCode) {
    switch (mode) {
    case WorkerMode::Stream:
        return streamReason(exitCode);
    case WorkerMode::LocalFile:
        return localFileReason(exitCode);
    case WorkerMode::Export:
        return exportReason(exitCode);
    }
    return {};
}

constexpr struct {
    ExitCause cause;
    const char* name;
} kNames[] = {
    {ExitCause::Unknown, "unknown"},
    {ExitCause::Complete, "complete"},
    {ExitCause::LinkClosed, "linkClosed"},
    {ExitCause::EndOfFile, "endOfFile"},
    {ExitCause::EndOfStream, "endOfStream"},
    {ExitCause::HttpStatus, "httpStatus"},
    {ExitCause::ConnectionRefused, "connectionRefused"},
    {ExitCause::ConnectionLost, "connectionLost"},
    {ExitCause::UnknownHost, "unknownHost"},
    {ExitCause::TlsFailure, "tlsFailure"},
    {ExitCause::ProxyFailure, "proxyFailure"},
    {ExitCause::NetworkFailure, "networkFailure"},
    {ExitCause::PicturesUnavailable, "picturesUnavailable"},
    {ExitCause::PicturesEnded, "picturesEnded"},
    {ExitCause::NoPicture, "noPicture"},
    {ExitCause::NotAStream, "notAStream"},
    {ExitCause::Failed, "failed"},
    {ExitCause::Killed, "killed"},
};

ExitCause streamCause(int exitCode) {
    switch (exitCode) {
    case 0:
        return ExitCause::LinkClosed;
    case 1:
        return ExitCause::NotAStream;
    case 2:
        return ExitCause::NoPicture;
    case 3:
        return ExitCause::EndOfStream;
    case 4:
        return ExitCause::PicturesEnded;
    default:
        return ExitCause::Unknown;
    }
}

ExitCause localFileCause(int exitCode) {
    switch (exitCode) {
    case 1:
        return ExitCause::Failed;
    case 2:
        return ExitCause::EndOfFile;
    default:
        return streamCause(exitCode);
    }
}

ExitCause exportCause(int exitCode) {
    switch (exitCode) {
    case 0:
        return ExitCause::Complete;
    case 1:
        return ExitCause::Failed;
    default:
        return ExitCause::Unknown;
    }
}

/// The response failed, and that code is one of those that its end leads to.
bool isEndedByResponse(WorkerMode mode, int exitCode, bool crashed, const WorkerFindings& findings) {
    const bool isAtEnd =
        mode == WorkerMode::Stream ? exitCode == 3 : mode == WorkerMode::Export && exitCode <= 1;
    return !crashed && isAtEnd && findings.isResponseFailed();
}

ExitCause responseCause(const WorkerFindings& findings) {
    const QString& error = findings.networkError;
    if (findings.httpStatus) {
        return ExitCause::HttpStatus;
    }
    if (error == QLatin1String("ConnectionRefusedError")) {
        return ExitCause::ConnectionRefused;
    }
    if (error == QLatin1String("RemoteHostClosedError")) {
        return ExitCause::ConnectionLost;
    }
    if (error == QLatin1String("HostNotFoundError")) {
        return ExitCause::UnknownHost;
    }
    if (error == QLatin1String("SslHandshakeFailedError")) {
        return ExitCause::TlsFailure;
    }
    return error.startsWith(QLatin1String("Proxy")) ? ExitCause::ProxyFailure : ExitCause::NetworkFailure;
}

QString statusWords(int status, const QString& reason) {
    constexpr int kFirstError = 400;
    QString words = QStringLiteral("the server answered %1 ").arg(status) + reason;
    words = words.trimmed();
    return status < kFirstError ? words + QStringLiteral(", a redirection that is not followed") : words;
}

} // namespace

ExitCause exitCause(WorkerMode mode, int exitCode, bool crashed, const WorkerFindings& findings) {
    if (crashed) {
        return ExitCause::Killed;
    }
    if (isEndedByResponse(mode, exitCode, crashed, findings)) {
        return responseCause(findings);
    }
    if (exitCode != 0 && !findings.picturesUnavailable.isEmpty()) {
        return ExitCause::PicturesUnavailable;
    }
    switch (mode) {
    case WorkerMode::Stream:
        return streamCause(exitCode);
    case WorkerMode::LocalFile:
        return localFileCause(exitCode);
    case WorkerMode::Export:
        return exportCause(exitCode);
    }
    return ExitCause::Unknown;
}

QString exitCauseName(ExitCause cause) {
    const auto* const found = std::find_if(std::begin(kNames), std::end(kNames),
                                           [cause](const auto& named) { return named.cause == cause; });
    return found != std::end(kNames) ? QLatin1String(found->name) : QString();
}

QString responseFailure(const WorkerFindings& findings) {
    const auto with = [&findings](const QString& words) {
        return findings.networkErrorText.isEmpty() ? words
                                                   : words + QStringLiteral(": ") + findings.networkErrorText;
    };
    if (!findings.isResponseFailed()) {
        return {};
    }
    switch (responseCause(findings)) {
    case ExitCause::HttpStatus:
        return statusWords(findings.httpStatus.value_or(0), findings.httpReason);
    case ExitCause::ConnectionRefused:
        return QStringLiteral("connection refused: nothing listens at that address and port");
    case ExitCause::ConnectionLost:
        return QStringLiteral("connection lost: it was closed before the answer was complete");
    case ExitCause::UnknownHost:
        return with(QStringLiteral("unknown host"));
    case ExitCause::TlsFailure:
        return with(QStringLiteral("no secure connection"));
    case ExitCause::ProxyFailure:
        return with(QStringLiteral("the proxy failed"));
    default:
        return with(QStringLiteral("network failure"));
    }
}

QString exitReason(WorkerMode mode, int exitCode, bool crashed) {
    if (crashed) {
        return QStringLiteral("the worker was killed");
    }
    const QString reason = reasonOf(mode, exitCode);
    return reason.isEmpty() ? QStringLiteral("unknown exit code %1").arg(exitCode) : reason;
}

QString exitReason(WorkerMode mode, int exitCode, bool crashed, const WorkerFindings& findings) {
    const ExitCause cause = exitCause(mode, exitCode, crashed, findings);
    if (cause == ExitCause::PicturesUnavailable) {
        return (mode == WorkerMode::Export ? QStringLiteral("the pictures cannot be recorded: ")
                                           : QStringLiteral("the pictures cannot be shown: ")) +
               findings.picturesUnavailable;
    }
    if (cause == ExitCause::EndOfStream) {
        return QStringLiteral("the server ended the stream");
    }
    if (!isEndedByResponse(mode, exitCode, crashed, findings)) {
        return exitReason(mode, exitCode, crashed);
    }
    const QString words = responseFailure(findings);
    return mode == WorkerMode::Export && exitCode == 0
               ? QStringLiteral("the file is complete, but the stream broke off: ") + words
               : words;
}

} // namespace mediaworker::parent
