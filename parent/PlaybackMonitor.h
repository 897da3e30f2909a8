#pragma once

#include "parent/Message.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>

namespace mediaworker::parent {

/// What a stream does, as far as it can be told without looking into its worker.
enum class PlaybackState {
    Idle,       ///< no worker was started
    Connecting, ///< the worker has not connected to this process yet
    Buffering,  ///< it is connected, but no picture came yet, or none for longer than kSilence
    Playing,
    Paused, ///< by the user; told from when the pause is ordered, not from when it is carried out
    Ended,  ///< the worker is gone
};

/// Follows one worker by what it says, and tells what people want to know of a stream. Tell it every message
/// as it comes; ask when something is to be shown.
///
/// Holds no clock: the time is passed in and must not go backwards. Memory is bounded. Not thread-safe.
class PlaybackMonitor {
public:
    using TimePoint = std::chrono::steady_clock::time_point; ///< passed in
    using Milliseconds = std::chrono::milliseconds;          ///< of real time

    /// The worker waits for the time of a picture that is up to 1,200 ms behind the one before, and shows one
    /// that is farther away at once. So a longer silence cannot be the stream's own frame rate: there is
    /// nothing to show. The rest is for the way. It has to stay below the shortest frame time-out of a stream
    /// (3 s), or a stream would end without ever having been seen to buffer.
    static constexpr Milliseconds kSilence{1300};
    /// Time stamps that are farther apart than that do not belong to one piece of the stream.
    static constexpr Milliseconds kMaxSpacing{1200};
    /// Pictures per second that can be counted.
    static constexpr std::size_t kMaxFramesPerSecond = 1000;

    // What happened.

    /// A worker was started; what was known of the one before is forgotten.
    void started(TimePoint now);
    void connected();                        ///< the worker has said so
    void frame(TimePoint now, qint64 ptsMs); ///< a picture was shown
    /// The user ordered a pause or its end.
    void setPaused(TimePoint now, bool paused);
    /// The stream told its absolute time; belongs to the newest picture, or to the first if none came yet.
    void absoluteTime(qint64 value);
    /// The stream told where in a recording it is, in units of the server.
    void fragment(qint64 position, qint64 duration);
    void ended(); ///< the worker is gone

    // What that means.

    [[nodiscard]] PlaybackState state(TimePoint now) const; ///< as people would say it
    /// The user wants it to stand still.
    [[nodiscard]] bool isPaused() const noexcept { return pausedSince_.has_value(); }

    /// Pictures that came.
    [[nodiscard]] quint64 frames() const noexcept { return frames_; }
    /// Pictures that came within the last second.
    [[nodiscard]] double framesPerSecond(TimePoint now) const;
    /// From the start to the first picture; nothing before it.
    [[nodiscard]] std::optional<Milliseconds> timeToFirstPicture() const;

    /// Time stamp of the newest picture.
    [[nodiscard]] std::optional<qint64> positionMs() const noexcept { return ptsMs_; }

    /// Absolute time of the newest picture: the value that the stream told last, and what the time stamps
    /// advanced since. The unit is the server's; this takes it for milliseconds, as usual since 1970.
    [[nodiscard]] std::optional<qint64> absoluteTimeMs() const;

    /// What the stream told last about its place in a recording, in units of the server.
    [[nodiscard]] const std::optional<Fragment>& lastFragment() const noexcept { return fragment_; }

    /// How far the pictures have fallen behind the first one: the time that passed from the first picture to
    /// the newest, less what their time stamps differ, less the time that the user paused. Silence after the
    /// newest picture counts from when the next one would be due, if it has the spacing of the last two.
    /// Negative when the stream runs faster than it did at first; 0 before the second picture.
    ///
    /// Where time stamps jump by more than kMaxSpacing, forwards or backwards, counting begins anew at zero:
    /// the worker shows such a picture at once, as it does with the first.
    [[nodiscard]] qint64 delayMs(TimePoint now) const;

    /// The same with the pauses: how far the picture is behind what the stream would show if it had never
    /// been paused.
    [[nodiscard]] qint64 behindMs(TimePoint now) const;

private:
    [[nodiscard]] bool isRunning() const;
    /// Since the anchor.
    [[nodiscard]] std::chrono::nanoseconds pausedUntil(TimePoint now) const;
    /// Since the anchor, without the pauses.
    [[nodiscard]] std::chrono::nanoseconds ranUntil(TimePoint now) const;
    void anchor(TimePoint now, qint64 ptsMs);

    enum class Phase { Idle, Started, Connected, Ended };
    Phase phase_ = Phase::Idle;
    TimePoint startedAt_{};

    quint64 frames_ = 0;
    std::optional<TimePoint> firstFrameAt_;
    TimePoint lastFrameAt_{};
    std::deque<TimePoint> recent_; ///< when the pictures of about the last second came, oldest first
    std::optional<qint64> ptsMs_;
    Milliseconds spacing_{};                ///< between the time stamps of the last two pictures of one piece
    std::chrono::nanoseconds ranAtFrame_{}; ///< when the newest picture came

    TimePoint anchorAt_{}; ///< of the first picture, or of the first one behind a jump
    qint64 anchorPtsMs_ = 0;
    std::chrono::nanoseconds pausedFor_{}; ///< since anchorAt_, without a pause that lasts

    std::optional<TimePoint> pausedSince_;
    TimePoint resumedAt_{};

    std::optional<qint64> absoluteTime_;
    std::optional<qint64> absoluteTimePtsMs_; ///< of the picture that absolute time belongs to
    std::optional<Fragment> fragment_;
};

} // namespace mediaworker::parent
