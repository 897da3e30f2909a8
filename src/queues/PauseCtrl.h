#pragma once

#include "base/Clock.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace ko_player::details {

/// Why presentation is paused; a set of these bits.
enum class PauseReason : std::uint32_t {
    None = 0,
    User = 1,
    Buffering = 2,
};

/// The set of pause reasons that both output threads wait on. Thread-safe.
class PauseCtrl {
public:
    /// Adds or removes a reason. Nothing happens while disabled.
    void set(PauseReason reason) { change(reason, true); }
    void clear(PauseReason reason) { change(reason, false); }

    /// While disabled, set() and clear() have no effect.
    void setDisabled(bool disabled);

    /// Returns false at once when no reason is set. Otherwise blocks until the set is empty or the control is
    /// stopped, and returns true only when it was the user's pause whose release emptied the set. Called by
    /// the output threads.
    bool wait();

    /// Sleeps until the deadline, but no longer than until a reason is set.
    void sleepUntil(base::Clock& clock, base::TimePoint deadline);

    /// Ends all waits for the end of a pause, now and later. Not undone.
    void stop();

    [[nodiscard]] bool isPaused() const;
    [[nodiscard]] bool isStopped() const;
    /// How many threads stand still in wait().
    [[nodiscard]] int waiting() const;

private:
    void change(PauseReason reason, bool add);

    mutable std::mutex mutex_;
    std::condition_variable changed_;

    // Guarded by mutex_.
    std::uint32_t reasons_ = 0;
    PauseReason resumeReason_ = PauseReason::None; ///< whose removal last emptied the set
    bool disabled_ = false;
    bool stopped_ = false;
    int waiting_ = 0;
};

} // namespace ko_player::details
