#pragma once

#include <QMap>
#include <QString>

/// What a worker can be started for.
namespace mediaworker::parent {

/// How a worker reads a stream's FLV.
enum class FlvReading {
    Strict,   ///< to the letter of the servers that the worker was first made for, as without any options
    Standard, ///< as common programs write it, with the codecs and composition times of today
};

/// Shows one stream, or one local file when `url` begins with "file".
struct StreamJob {
    QString url;            ///< http or https, or a local file
    QString proxyUrl = {};  ///< empty: none
    QString proxyType = {}; ///< "socks5", or anything else for an HTTP proxy

    FlvReading flv = FlvReading::Standard; ///< how its FLV is read
    /// The delay stays as small as the network allows, and every hitch of it shows: no pictures are kept
    /// ahead.
    bool lowLatency = false;
    /// Sound is kept in step with the pictures. Without it, it has a rhythm of its own.
    bool sync = true;
    /// The worker gives up everything that it does not need before it reads the stream, as far as the system
    /// has the means; see docs/security.md.
    bool sandbox = true;
};

/// Records a stream into an MP4 file.
struct ExportJob {
    QString url;        ///< http or https
    int durationMs = 0; ///< length; what progress is measured against
    QString outputPath; ///< the file to write; what is there is overwritten
    /// As of a StreamJob, but told to the worker by its environment. Without one, it is the proxy of this
    /// process's environment, if there is any. On Windows, always the system's.
    QString proxyUrl = {};
    QString proxyType = {}; ///< as of a StreamJob

    FlvReading flv = FlvReading::Standard; ///< how its FLV is read
    /// The file ends at the picture that begins behind the duration; with a duration of 0, at
    /// WorkerProcess::finish(). Otherwise the duration is what a server is expected to send, and a stream
    /// that goes on is cut ten seconds behind it.
    bool exactLength = true;
    /// The file can be played up to its last seconds wherever the writing stops: when the worker is killed,
    /// or the disk is full. A complete one is as it would be without that.
    bool crashSafe = true;
    bool sandbox = true; ///< see StreamJob
};

/// The environment variable by which a worker is told what its arguments have no place for.
inline constexpr char kOptionsVariable[] = "MEDIAWORKER_OPTIONS";

/// Its value for a job: every key that the job decides.
[[nodiscard]] QString optionsOf(const StreamJob& job);
/// The same for an export.
[[nodiscard]] QString optionsOf(const ExportJob& job);

/// What an export's environment has to have for the job's proxy; a null value: must not have. Empty without a
/// proxy.
[[nodiscard]] QMap<QString, QString> proxyVariables(const ExportJob& job);

} // namespace mediaworker::parent
