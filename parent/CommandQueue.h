#pragma once

#include "parent/Message.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace mediaworker::parent {

/// Decides when which bytes of the parent's commands go onto the wire.
///
/// A worker completes at most one packet per notification of its socket: what arrived together with it stays
/// unseen until further bytes come. So one command is written at a time, and the next one only after the
/// worker has logged that it took the previous one (acknowledged()), or after a fall-back time without that
/// line.
///
/// A worker that stood still longer than that finds several commands at once, takes the first and leaves the
/// others lying. The acknowledgement of the first shows it; then single bytes of a packet that means nothing
/// make the worker look again, until everything is acknowledged.
///
/// Holds no clock: the time is passed in. Not thread-safe.
class CommandQueue {
public:
    /// Of a clock that does not go backwards.
    using TimePoint = std::chrono::steady_clock::time_point;
    using Milliseconds = std::chrono::milliseconds; ///< of real time

    /// A worker takes a command within a millisecond, unless its sound device makes it wait.
    static constexpr Milliseconds kFallback{250};
    /// Commands waiting at most. A parent that gets here has a worker that takes nothing any more.
    static constexpr std::size_t kCapacity = 256;

    /// `fallback`: how long an acknowledgement may take before the next command is written without it.
    explicit CommandQueue(Milliseconds fallback = kFallback) : fallback_(fallback) {}

    /// Queues a volume. One that waits unsent at the end of the queue is replaced: only the newest counts.
    /// All these return false, and queue nothing, when the queue is full.
    [[nodiscard]] bool pushVolume(std::uint32_t percent);
    /// Queues a pause, its end, or the end of the sound.
    [[nodiscard]] bool pushPause() { return push(MessageType::Pause, 0); }
    /// @copydoc pushPause
    [[nodiscard]] bool pushResume() { return push(MessageType::Resume, 0); }
    /// @copydoc pushPause
    [[nodiscard]] bool pushStopAudio() { return push(MessageType::StopAudio, 0); }

    /// The worker has logged that it took a command of this type. Anything that was not written is ignored.
    void acknowledged(std::uint8_t type);

    /// What to write now; empty when there is nothing to write yet. Ask after each push and acknowledgement,
    /// and at the deadline.
    [[nodiscard]] QByteArray take(TimePoint now);

    /// When take() has to be asked again although nothing was pushed or acknowledged.
    [[nodiscard]] std::optional<TimePoint> deadline() const;

    /// Forgets everything, for a new connection.
    void clear();

    /// Commands that were not written yet.
    [[nodiscard]] std::size_t waiting() const noexcept { return commands_.size(); }

private:
    struct Command {
        MessageType type;
        std::uint32_t volumePercent;
    };

    bool push(MessageType type, std::uint32_t volumePercent);
    void written(MessageType type);
    QByteArray writeIdleBytes(int count);

    Milliseconds fallback_;
    std::deque<Command> commands_;
    std::deque<MessageType> unacknowledged_; ///< written completely, oldest first
    TimePoint deadline_{};                   ///< of the newest of unacknowledged_
    bool leftLying_ = false; ///< something was acknowledged while more of unacknowledged_ should have been
    int idleBytesLeft_ = 0;  ///< of a meaningless packet that was begun
};

} // namespace mediaworker::parent
