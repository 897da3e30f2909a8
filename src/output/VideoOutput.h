#pragma once

#include "base/Clock.h"
#include "output/PresentationClock.h"
#include "queues/MediaQueues.h"
#include "queues/PlayerState.h"
#include "records/Handlers.h"
#include "records/Metadata.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <thread>

namespace ko_player {

class VideoConvert;

using MetadataQueue = details::Queue<Metadata>;

/// The last stage of the video pipeline. Its thread takes decoded pictures from the frame queue, converts
/// each into the handler's buffer, holds it back until its time, and tells the handler. A picture that does
/// not come in time is reported to the handler, which decides whether to go on.
class VideoOutput {
public:
    /// Starts the thread. Time-outs count as 1 s at least; `handler` may be empty until a picture
    /// arrives.
    VideoOutput(std::shared_ptr<FrameQueue> frames, std::shared_ptr<MetadataQueue> metadata,
                std::shared_ptr<VideoState> state, std::chrono::seconds firstTimeout,
                std::chrono::seconds nextTimeout, std::shared_ptr<VideoHandler> handler, base::Clock& clock);
    /// Closes the frame queue, which ends the thread, and joins it. The pause control must be stopped first
    /// if a pause may be set.
    ~VideoOutput();
    VideoOutput(const VideoOutput&) = delete;
    VideoOutput& operator=(const VideoOutput&) = delete;

    /// Waits for the thread to end by itself, which it does once the frame queue is aborted and drained.
    /// Throws std::system_error when called from that thread.
    void join();

private:
    void showTask();
    void showPictures();
    [[nodiscard]] std::shared_ptr<ff_wrap::Frame> waitForPicture();
    /// False drops the picture.
    [[nodiscard]] bool handleFirstFrame(const AVFrame& picture);
    [[nodiscard]] bool convert(const AVFrame& picture);
    void waitWhilePaused();
    /// Waits for the picture's time, and returns it.
    base::TimePoint syncTime(std::int64_t ptsMs);
    void deliverMetadata(std::int64_t ptsMs);
    void setDeadline(std::chrono::seconds timeout);

    const std::shared_ptr<FrameQueue> frames_;
    const std::shared_ptr<MetadataQueue> metadata_;
    const std::shared_ptr<VideoHandler> handler_;
    const std::shared_ptr<VideoState> state_;
    base::Clock& clock_;
    const std::chrono::seconds firstTimeout_;
    const std::chrono::seconds nextTimeout_;

    // Owned by the thread.
    PresentationClock presentation_;
    std::unique_ptr<VideoConvert> converter_; ///< absent until the first usable picture
    base::TimePoint deadline_;
    std::chrono::seconds timeout_; ///< the one that deadline_ was made with

    std::thread thread_;
};

} // namespace ko_player
