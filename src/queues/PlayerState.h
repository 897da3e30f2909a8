#pragma once

#include "base/Clock.h"
#include "queues/PauseCtrl.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace ko_player {

/// A picture on screen.
struct ShownPicture {
    std::int64_t stampMs = 0;
    base::TimePoint when; ///< it was shown, or was due where that is no later

    friend bool operator==(const ShownPicture&, const ShownPicture&) = default;
};

/// Which picture was shown last, for sound that is to keep step. Written by the video output, read by the
/// audio output.
class ShownRecord {
public:
    void publish(const ShownPicture& picture) {
        const std::lock_guard lock(mutex_);
        last_ = picture;
    }
    /// The pictures pause: there is none to keep step with.
    void clear() {
        const std::lock_guard lock(mutex_);
        last_.reset();
    }
    [[nodiscard]] std::optional<ShownPicture> last() const {
        const std::lock_guard lock(mutex_);
        return last_;
    }

private:
    mutable std::mutex mutex_;
    std::optional<ShownPicture> last_; ///< guarded by mutex_
};

/// Shared by the video pipeline, the video output and the player.
struct VideoState {
    explicit VideoState(std::shared_ptr<details::PauseCtrl> pause,
                        std::shared_ptr<ShownRecord> shownRecord = nullptr)
        : pauseCtrl(std::move(pause)), shown(std::move(shownRecord)) {}

    /// Milliseconds; written by the pipeline's push, "l" in the buffering logs.
    std::atomic<std::int64_t> newestPushedMs{0};
    /// Milliseconds; written by the video output, "p" in the buffering logs.
    std::atomic<std::int64_t> lastShownMs{0};
    const std::shared_ptr<details::PauseCtrl> pauseCtrl;
    const std::shared_ptr<ShownRecord> shown; ///< null where no sound keeps step with the pictures
};

/// Through this the audio pipeline and its output reach the same pause control.
struct PlayerState {
    explicit PlayerState(std::shared_ptr<details::PauseCtrl> pause,
                         std::shared_ptr<const ShownRecord> shownRecord = nullptr)
        : pauseCtrl(std::move(pause)), shown(std::move(shownRecord)) {}

    const std::shared_ptr<details::PauseCtrl> pauseCtrl;
    /// What sound keeps step with; null where it has a rhythm of its own.
    const std::shared_ptr<const ShownRecord> shown;
};

} // namespace ko_player
