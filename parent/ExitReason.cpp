#include "parent/ExitReason.h"

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

} // namespace

QString exitReason(WorkerMode mode, int exitCode, bool crashed) {
    if (crashed) {
        return QStringLiteral("the worker was killed");
    }
    const QString reason = reasonOf(mode, exitCode);
    return reason.isEmpty() ? QStringLiteral("unknown exit code %1").arg(exitCode) : reason;
}

} // namespace mediaworker::parent
