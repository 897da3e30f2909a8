#pragma once

#include "parent/LocalFile.h"

#include <QString>

#include <chrono>
#include <optional>

namespace mediaworker::parent {

/// What a worker's log tells about things that went wrong, and what else was seen of it. Only a worker that
/// was given options says the most of it: every worker of this library is, unless its program is an older
/// one.
///
/// Texts are the worker's, FFmpeg's, Qt's or the server's: plain text on one line of bounded length, without
/// user names and passwords of URLs.
struct WorkerFindings {
    std::optional<int> httpStatus = {}; ///< of a response that was no success: 300 and above
    QString httpReason = {};            ///< the words that came with it, "Not Found"; may be empty
    QString networkError = {};          ///< by its name in QNetworkReply::NetworkError; empty: there was none
    QString networkErrorText = {};      ///< the same in words
    QString picturesUnavailable = {};   ///< codec and first reason; empty: nothing was said of the kind
    /// Codec and first reason, or that there is no device: until one is there after all.
    QString soundUnavailable = {};
    bool isSoundKnown = false; ///< the stream's, and it is decoded
    /// Of an export whose file is complete: how long its pictures last, and whether it has sound.
    std::optional<qint64> recordedMs = {};
    bool hasRecordedSound = false; ///< with recordedMs

    QString streamError = {};    ///< why the received data is no FLV
    QString writeError = {};     ///< why its file cannot be written: the recording, or that of the pictures
    QString otherFailure = {};   ///< why else it ends with code 1
    bool isFileRefused = false;  ///< a local one, which cannot be opened or is in no format that is known
    bool isResponseOver = false; ///< or broke off

    // What the parent saw. Empty: it did not look, or it ended the worker itself.
    std::optional<bool> isConnected = {};     ///< it was, at some time
    std::optional<bool> hasShownPicture = {}; ///< one at least
    QString program = {};                     ///< the worker's
    LocalFile localFile = {};                 ///< that it was to play; looked at when it had ended
    /// What is fetched by plain HTTP through an HTTP proxy comes from a connection to that proxy alone.
    bool isProxyPeer = false;

    /// The response ended by one of the two.
    [[nodiscard]] bool isResponseFailed() const { return httpStatus || !networkError.isEmpty(); }

    /// An export's complete file is shorter than it was to be, since the connection was lost or the stream
    /// stood still. One that the server ended is as long as the stream. `asked`: zero: until it is stopped.
    [[nodiscard]] bool isCutShort(std::chrono::milliseconds asked, bool stoodStill) const;

    /// Notes what a line of the log says; most say nothing of the kind. `isSoundWanted`: by the user, so that
    /// a device that does not work counts.
    void take(const QString& line, bool isSoundWanted);

private:
    /// The lines about the sound device. False: it is none of them.
    bool takeDevice(const QString& line, bool isSoundWanted);
    /// The lines before an end.
    void takeEnd(const QString& line);
};

} // namespace mediaworker::parent
