#include "output/VideoOutput.h"

#include "base/Log.h"
#include "base/ThreadEntry.h"
#include "ffmpeg/FfmpegError.h"
#include "output/VideoConvert.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
}

#include <algorithm>
#include <chrono>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

namespace ko_player {
namespace {

constexpr std::chrono::seconds kShortestTimeout{1};

} // namespace

VideoOutput::VideoOutput(std::shared_ptr<FrameQueue> frames, std::shared_ptr<MetadataQueue> metadata,
                         std::shared_ptr<VideoState> state, std::chrono::seconds firstTimeout,
                         std::chrono::seconds nextTimeout, std::shared_ptr<VideoHandler> handler,
                         base::Clock& clock)
    : frames_(std::move(frames)), metadata_(std::move(metadata)), handler_(std::move(handler)),
      state_(std::move(state)), clock_(clock), firstTimeout_(std::max(firstTimeout, kShortestTimeout)),
      nextTimeout_(std::max(nextTimeout, kShortestTimeout)), timeout_(firstTimeout_),
      thread_([this] { showTask(); }) {}

VideoOutput::~VideoOutput() {
    frames_->close();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void VideoOutput::join() {
    // What a join of itself would report, without a call that tools for thread errors take for a real one.
    if (thread_.get_id() == std::this_thread::get_id()) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }
    if (thread_.joinable()) {
        thread_.join();
    }
}

void VideoOutput::showTask() {
    base::enterThread("video output");
    try {
        showPictures();
    } catch (const std::exception& error) {
        base::logAt("ko_player::VideoOutput::showTask", "exception: ", error.what());
    }
    frames_->close();
    if (handler_) {
        handler_->onStopped();
    }
    base::logLine("showTask is finished");
}

void VideoOutput::showPictures() {
    setDeadline(firstTimeout_);
    while (std::shared_ptr<ff_wrap::Frame> frame = waitForPicture()) {
        setDeadline(nextTimeout_);
        if (!handleFirstFrame(*frame->get())) {
            continue;
        }
        const bool converted = convert(*frame->get());
        const std::int64_t ptsMs = (*frame)->pts;
        frame.reset(); // back to the decoder's pool before the wait: at 1080p that is 3 MB less per worker
        waitWhilePaused();
        const base::TimePoint when = syncTime(ptsMs);
        state_->lastShownMs = ptsMs;
        if (state_->shown) {
            state_->shown->publish({ptsMs, when});
        }
        if (converted && handler_) {
            handler_->onFrame(converter_->buffer(), converter_->bufferSize(), ptsMs);
        }
        deliverMetadata(ptsMs);
    }
}

std::shared_ptr<ff_wrap::Frame> VideoOutput::waitForPicture() {
    for (;;) {
        auto why = details::NoElement::Ended;
        if (auto frame = frames_->waitPopUntil(clock_, deadline_, why)) {
            return std::move(*frame);
        }
        if (why == details::NoElement::Ended) {
            return nullptr;
        }
        base::logLine("video frame waiting timeout: ", timeout_.count());
        if (!handler_ || !handler_->onFrameTimeout()) {
            return nullptr;
        }
        setDeadline(timeout_);
    }
}

bool VideoOutput::handleFirstFrame(const AVFrame& picture) {
    if (converter_ && picture.height == converter_->in().height && picture.width == converter_->in().width &&
        picture.format == converter_->in().format) {
        return true;
    }
    constexpr auto kName = "ko_player::VideoOutput::handleFirstFrame";
    const VideoParams in{picture.format, picture.width, picture.height, picture.sample_aspect_ratio};
    base::logAt(kName, "inParams: ", in);
    if (av_image_get_buffer_size(static_cast<AVPixelFormat>(in.format), in.width, in.height, 1) <= 0) {
        base::logAt(kName, " invalid: ", in);
        return false;
    }
    VideoParams out;
    std::uint8_t* buffer = nullptr;
    if (handler_) {
        buffer = handler_->onVideoParams(in, out);
    } else {
        out = in;
    }
    converter_ = std::make_unique<VideoConvert>(in, out, buffer);
    return true;
}

bool VideoOutput::convert(const AVFrame& picture) {
    int result = 0;
    {
        const ResourceGuard guard = handler_ ? handler_->lockFrameBuffer() : ResourceGuard();
        result = converter_->convert(picture);
    }
    if (result < 0) {
        base::logLine("conversion failed: ", ff_wrap::errorText(result));
        return false;
    }
    return true;
}

void VideoOutput::waitWhilePaused() {
    if (state_->shown && state_->pauseCtrl->isPaused()) {
        state_->shown->clear();
    }
    if (state_->pauseCtrl->wait()) {
        base::logLine("Resync after pause");
        presentation_.reset();
        setDeadline(nextTimeout_);
    }
}

base::TimePoint VideoOutput::syncTime(std::int64_t ptsMs) {
    const PresentationClock::Release release =
        presentation_.next(ptsMs, state_->newestPushedMs, clock_.now());
    if (release.notice == PresentationClock::Notice::BigDifference) {
        base::logLine("There is to big difference: ", release.deltaMs);
    } else if (release.notice == PresentationClock::Notice::NegativeDelta) {
        base::logLine("Negative video frame time delta");
    }
    if (release.mustWait) {
        clock_.sleepUntil(release.showTime);
    }
    return release.showTime;
}

void VideoOutput::deliverMetadata(std::int64_t ptsMs) {
    const auto isDue = [ptsMs](const Metadata& record) { return record.timestampMs <= ptsMs; };
    // Not only from the front: records come with the packets, which are not in the order of the pictures.
    while (const std::optional<Metadata> record = metadata_->tryTakeFirst(isDue)) {
        if (!handler_) {
            continue;
        }
        if (record->absoluteTime >= 1) {
            handler_->onMetadataValue(record->absoluteTime);
        } else if (record->fragmentPosition >= 1 && record->fragmentDuration >= 1) {
            handler_->onMetadataPair(record->fragmentPosition, record->fragmentDuration);
        }
    }
}

void VideoOutput::setDeadline(std::chrono::seconds timeout) {
    timeout_ = timeout;
    deadline_ = base::addClamped(clock_.now(), timeout);
}

} // namespace ko_player
