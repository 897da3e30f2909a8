#pragma once

#include "parent/WorkerFindings.h"

#include <QString>

namespace mediaworker::parent {

/// What a worker was started for: its exit codes depend on it.
enum class WorkerMode { Stream, LocalFile, Export };

/// Why a worker ended, or never ran.
enum class ExitCause {
    Unknown,             ///< an exit code that no worker has
    Complete,            ///< the file of an export is
    LinkClosed,          ///< by this side, or it failed
    EndOfFile,           ///< of a local one, which may also be one that cannot be read
    EndOfStream,         ///< the server ended it; nothing else was told
    HttpStatus,          ///< the server refused: WorkerFindings::httpStatus
    ConnectionRefused,   ///< nobody listens there
    ConnectionLost,      ///< the server closed it before its answer was complete
    UnknownHost,         ///< no address for that name
    TlsFailure,          ///< certificate, version or cipher
    ProxyFailure,        ///< refused, not found, or another fault of it
    ProxyPassword,       ///< it wants another user name or password
    NetworkTimeout,      ///< no answer
    NetworkFailure,      ///< anything else of the kind
    PicturesUnavailable, ///< nothing here decodes, or records, them
    PicturesEnded,       ///< or could not be decoded
    NoPicture,           ///< in time
    NotAStream,          ///< the data is broken or no FLV
    FileMissing,         ///< the local file that was to be played
    FileUnreadable,      ///< it may not be read, is a folder, or in no format that is known
    NoVideo,             ///< there is none in it
    FileNotWritable,     ///< of a recording, or of the pictures: no such folder, no right, no room
    Crashed,             ///< as far as one can tell: caught in the worker, and so without a signal
    WorkerMissing,       ///< its program is not there
    WorkerUnusable,      ///< it cannot be run, or is another program
    NotConnected,        ///< in time
    StoodStill,          ///< it said nothing any more
    Failed,              ///< for another reason, or one that is not known
    Killed,              ///< by somebody, or by a signal
};

// `crashed` is true when the process was killed or ended by a signal; the code means nothing then.
// `findings`: what WorkerProcess gathered; without them, the exit code is all that there is to go by.

/// Why a worker ended, for programs: the cause of problemOf(), which tells all at once.
[[nodiscard]] ExitCause exitCause(WorkerMode mode, int exitCode, bool crashed,
                                  const WorkerFindings& findings);

/// The name of a cause, which stays the same in all versions: "connectionRefused".
[[nodiscard]] QString exitCauseName(ExitCause cause);

/// What went wrong with the response, in words; empty when nothing was told of it.
[[nodiscard]] QString responseFailure(const WorkerFindings& findings);

/// Why a worker ended, in words without a full stop, by its exit code alone.
[[nodiscard]] QString exitReason(WorkerMode mode, int exitCode, bool crashed);

/// The same with what its log told: "the server answered 404 Not Found". The text of problemOf().
[[nodiscard]] QString exitReason(WorkerMode mode, int exitCode, bool crashed, const WorkerFindings& findings);

} // namespace mediaworker::parent
