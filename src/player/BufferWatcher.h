#pragma once

#include "base/Clock.h"
#include "player/Player.h"
#include "queues/Queue.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>

namespace ko_player {

/// Ends a buffering period that lasts too long: a task of its own waits for the time-out after each arm() and
/// calls back with the generation that was armed.
class Player::BufferWatcher {
public:
    using Callback = std::function<void(std::uint64_t generation)>;

    /// `callback` runs on the watcher's task.
    BufferWatcher(std::chrono::seconds timeout, Callback callback, base::Clock& clock);
    ~BufferWatcher();
    BufferWatcher(const BufferWatcher&) = delete;
    BufferWatcher& operator=(const BufferWatcher&) = delete;

    /// Ends the task and waits for it, with a callback that may be under way, which must not need a lock that
    /// the caller holds. The destructor does so, too.
    void stop() noexcept;

    /// Starts a new generation and its time-out. Called under the player's mutex, as are the next two.
    void arm();
    void disarm();
    [[nodiscard]] std::uint64_t generation() const { return generation_; }

private:
    static constexpr std::uint64_t kDisarm = 0;

    void watch();
    /// Waits out one armed period, or several if it is armed again meanwhile.
    void waitArmed(std::uint64_t generation);

    const std::chrono::seconds timeout_;
    const Callback callback_;
    base::Clock& clock_;
    std::uint64_t generation_ = 0; ///< guarded by the player's mutex
    /// One place: only the latest request waits. Closed when the watcher stops.
    details::Queue<std::uint64_t> requests_{1};
    std::future<void> task_;
};

} // namespace ko_player
