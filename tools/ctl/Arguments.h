#pragma once

#include "parent/Job.h"
#include "tools/ctl/WorkerLog.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>
#include <variant>

namespace mediaworker::ctl {

struct PlayCommand {
    QString url;
    std::optional<std::chrono::milliseconds> duration = {}; ///< of watching; empty: to the stream's end
    QString snapshotFolder = {};                            ///< empty: no snapshots
    std::chrono::milliseconds snapshotInterval{1000};       ///< of stream time, from one to the next
    std::optional<int> volumePercent = {};                  ///< empty: no sound
    QString proxyUrl = {};
    QString proxyType = {};
    parent::FlvReading flv = parent::FlvReading::Standard;
    bool hasLowLatency = false;
    bool hasSync = true;
    bool isReconnecting = false; ///< another worker when one has ended
    bool isConfined = true;
    QString worker = {}; ///< program file; empty: as the library finds it
    LogTargets log = {};
    bool isJson = false;
    friend bool operator==(const PlayCommand&, const PlayCommand&) = default;
};

struct ExportCommand {
    QString url;
    QString file;                          ///< absolute
    std::chrono::milliseconds duration{0}; ///< the recording's length; zero: until the user stops it
    /// How long the progress may stand still; zero: for ever.
    std::chrono::milliseconds patience{0};
    parent::FlvReading flv = parent::FlvReading::Standard;
    bool mayReplace = true; ///< a file of that name
    bool isConfined = true;
    QString worker = {};
    LogTargets log = {};
    bool isJson = false;
    friend bool operator==(const ExportCommand&, const ExportCommand&) = default;
};

/// Text that was asked for: help or version.
struct Information {
    QString text;
};

/// Wrong usage: why, and whose help to read ("play --help").
struct Misuse {
    QString why;
    QString help;
};

using Command = std::variant<PlayCommand, ExportCommand, Information, Misuse>;

/// What a command line asks for. `arguments` begins with the program's name; relative paths start from
/// `folder`. Needs a QCoreApplication.
[[nodiscard]] Command parseArguments(const QStringList& arguments, const QString& folder);

/// How long the progress of an export may stand still if nobody says otherwise: a server needs a minute to
/// begin, and a live stream a hundredth of the duration for each percent; five times that is dead.
[[nodiscard]] std::chrono::milliseconds defaultPatience(std::chrono::milliseconds duration);

} // namespace mediaworker::ctl
