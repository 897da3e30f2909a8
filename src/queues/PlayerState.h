#pragma once

#include "queues/PauseCtrl.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace ko_player {

/// Shared by the video pipeline, the video output and the player.
struct VideoState {
    explicit VideoState(std::shared_ptr<details::PauseCtrl> pause) : pauseCtrl(std::move(pause)) {}

    /// Milliseconds; written by the pipeline's push, "l" in the buffering logs.
    std::atomic<std::int64_t> newestPushedMs{0};
    /// Milliseconds; written by the video output, "p" in the buffering logs.
    std::atomic<std::int64_t> lastShownMs{0};
    const std::shared_ptr<details::PauseCtrl> pauseCtrl;
};

/// Through this the audio pipeline and its output reach the same pause control.
struct PlayerState {
    explicit PlayerState(std::shared_ptr<details::PauseCtrl> pause) : pauseCtrl(std::move(pause)) {}

    const std::shared_ptr<details::PauseCtrl> pauseCtrl;
};

} // namespace ko_player
