#include "parent/ExitReason.h"

#include "parent/Problem.h"

#include <algorithm>
#include <iterator>

namespace mediaworker::parent {

namespace {

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
    {ExitCause::ProxyPassword, "proxyPassword"},
    {ExitCause::NetworkTimeout, "networkTimeout"},
    {ExitCause::NetworkFailure, "networkFailure"},
    {ExitCause::PicturesUnavailable, "picturesUnavailable"},
    {ExitCause::PicturesEnded, "picturesEnded"},
    {ExitCause::NoPicture, "noPicture"},
    {ExitCause::NotAStream, "notAStream"},
    {ExitCause::FileMissing, "fileMissing"},
    {ExitCause::FileUnreadable, "fileUnreadable"},
    {ExitCause::NoVideo, "noVideo"},
    {ExitCause::FileNotWritable, "fileNotWritable"},
    {ExitCause::Crashed, "crashed"},
    {ExitCause::WorkerMissing, "workerMissing"},
    {ExitCause::WorkerUnusable, "workerUnusable"},
    {ExitCause::NotConnected, "notConnected"},
    {ExitCause::StoodStill, "stoodStill"},
    {ExitCause::Failed, "failed"},
    {ExitCause::Killed, "killed"},
};

} // namespace

QString exitCauseName(ExitCause cause) {
    const auto* const found = std::find_if(std::begin(kNames), std::end(kNames),
                                           [cause](const auto& named) { return named.cause == cause; });
    return found != std::end(kNames) ? QLatin1String(found->name) : QString();
}

ExitCause exitCause(WorkerMode mode, int exitCode, bool crashed, const WorkerFindings& findings) {
    return problemOf(mode, exitCode, crashed, findings).cause;
}

QString exitReason(WorkerMode mode, int exitCode, bool crashed) {
    return exitReason(mode, exitCode, crashed, {});
}

QString exitReason(WorkerMode mode, int exitCode, bool crashed, const WorkerFindings& findings) {
    return problemOf(mode, exitCode, crashed, findings).text;
}

} // namespace mediaworker::parent
