#pragma once

#include "parent/WorkerProcess.h"
#include "support/media/FlvStream.h"
#include "support/media/TestPicture.h"

#include <QStringList>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace mediaworker::test {

using Clock = std::chrono::steady_clock;

/// A frame message, and the picture that lay in the frame file right after it.
struct Shown {
    std::int64_t ptsMs = 0;
    Clock::time_point when;
    bool hasPicture = false;
    int widthPx = 0;
    int heightPx = 0;
    PictureNumbers numbers;
    int patchError = 0;

    /// The picture is whole; which one it is can be asked.
    [[nodiscard]] bool isWhole() const { return hasPicture && numbers.top && numbers.top == numbers.bottom; }
};

/// A message about the place in the recording: an absolute time, or a fragment.
struct Position {
    std::optional<std::int64_t> absoluteTime = {};
    std::int64_t fragmentPosition = 0;
    std::int64_t fragmentDuration = 0;
    std::size_t framesBefore = 0; ///< frame messages that had come

    bool operator==(const Position&) const = default;
};

struct LogLine {
    std::string text;
    Clock::time_point when;
};

/// The real worker under a parent that writes down everything it hears. Needs the thread's event loop, which
/// runs only inside the waiting functions.
class Session {
public:
    struct Options {
        std::string program = MEDIAWORKER_PROGRAM;
        QStringList prefix = {}; ///< see WorkerProcess::setProgramPrefix
        std::vector<std::pair<std::string, std::string>> environment = {};
        std::string proxyUrl = {};
        std::string proxyType = {};
        bool readsPictures = true; ///< at every frame message, under the semaphore
        bool readsPatches = false; ///< and their colours
    };

    Session();
    explicit Session(const Options& options);

    /// Throws std::runtime_error when the worker cannot be started.
    void start(const std::string& url);

    // All these return false, or nothing, when `limit` is over first, and throw std::runtime_error when the
    // worker's program could not be run.
    bool waitUntil(const std::function<bool()>& isDone, std::chrono::milliseconds limit = kLimit);
    bool waitForFrames(std::size_t count, std::chrono::milliseconds limit = kLimit);
    bool waitForLine(const std::string& line, int count = 1, std::chrono::milliseconds limit = kLimit);
    /// The exit code; -1 for a worker that was ended by a signal.
    std::optional<int> waitForExit(std::chrono::milliseconds limit = kLimit);
    /// Lets the time pass while listening.
    void listen(std::chrono::milliseconds duration);

    [[nodiscard]] parent::WorkerProcess& worker() { return worker_; }
    [[nodiscard]] parent::FrameChannel& frames() { return *worker_.frames(); }

    [[nodiscard]] const std::vector<Shown>& shown() const { return shown_; }
    [[nodiscard]] std::vector<std::int64_t> stamps() const;
    /// The number of the picture in the frame file now, also after the worker's end.
    [[nodiscard]] std::optional<int> lastPictureNumber();
    [[nodiscard]] const std::vector<LogLine>& log() const { return log_; }
    [[nodiscard]] int countLines(const std::string& line) const;
    [[nodiscard]] bool hasLine(const std::string& line) const { return countLines(line) > 0; }
    [[nodiscard]] bool hasLineBeginning(const std::string& begin) const;
    /// The whole log, for the message of a failed expectation.
    [[nodiscard]] std::string logText() const;

    [[nodiscard]] int formatChanges() const { return formatChanges_; }
    [[nodiscard]] const std::vector<Position>& positions() const { return positions_; }
    [[nodiscard]] int malformedMessages() const { return malformed_; }
    [[nodiscard]] std::optional<qint64> connectedPid() const { return connectedPid_; }
    [[nodiscard]] std::optional<Clock::time_point> endedAt() const { return endedAt_; }

    /// Resident memory of the worker now, in bytes; 0 when it does not run.
    [[nodiscard]] std::int64_t residentBytes() const;

private:
    static constexpr std::chrono::milliseconds kLimit{30000};

    void takeFrame(qint64 ptsMs);

    Options options_;
    std::vector<Shown> shown_;
    std::vector<LogLine> log_;
    int formatChanges_ = 0;
    int malformed_ = 0;
    std::vector<Position> positions_;
    std::optional<qint64> connectedPid_;
    std::optional<int> exitCode_;
    std::optional<std::string> startFailure_;
    std::optional<Clock::time_point> endedAt_;
    parent::WorkerProcess worker_; ///< last: it may speak while it goes
};

/// Tolerances of time are multiplied by this: sanitizers and busy machines are slow.
inline constexpr int kSlowness = MEDIAWORKER_TEST_SLOWNESS;
/// Sanitizers keep what was freed: the memory of a process tells nothing there.
inline constexpr bool kMeasuresMemory = MEDIAWORKER_TEST_MEASURES_MEMORY != 0;

/// Whether this run of the tests gives every worker the option "sandbox=on": the variable
/// MEDIAWORKER_TEST_SANDBOX is set.
[[nodiscard]] bool areWorkersConfined();
/// What this system lacks for confining a worker, in the words of one that was asked for it; nothing where it
/// lacks nothing.
[[nodiscard]] std::optional<std::string> confinementObstacle();

/// The clip's length repeated until it lasts at least that long.
[[nodiscard]] FlvOptions lasting(const Clip& clip, std::chrono::milliseconds duration);

} // namespace mediaworker::test
