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

} // namespace

QString exitReason(WorkerMode mode, int exitCode, bool crashed) {
    if (crashed) {
        return QStringLiteral("the worker was killed");
    }
    QString reason;
    if (mode == WorkerMode::Stream) {
        reason = streamReason(exitCode);
    } else if (exitCode == 0) {
        reason = QStringLiteral("the file is complete");
    } else if (exitCode == 1) {
        reason = QStringLiteral("the export failed, or the link to the parent was closed");
    }
    return reason.isEmpty() ? QStringLiteral("unknown exit code %1").arg(exitCode) : reason;
}

} // namespace mediaworker::parent
