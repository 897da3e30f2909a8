#include "stream/VideoHandler.h"

#include "base/ImmediateExit.h"
#include "base/Log.h"
#include "stream/ExitCodes.h"

#include <utility>

VideoHandler::VideoHandler(Callables callables) : callables_(std::move(callables)) {}

void VideoHandler::expectPicture(int width, int height) {
    if (callables_.expectPicture) {
        callables_.expectPicture(width, height);
    }
}

bool VideoHandler::onFrameTimeout() {
    base::logLine("exit on frame timeout");
    base::exitNow(exit_code::kFrameTimeout);
}

void VideoHandler::onStopped() {
    if (callables_.onStopped) {
        callables_.onStopped();
    }
}

std::uint8_t* VideoHandler::onVideoParams(const ko_player::VideoParams& in, ko_player::VideoParams& out) {
    return callables_.onVideoParams(in, out);
}

void VideoHandler::onFrame(const std::uint8_t* data, int size, std::int64_t pts) {
    callables_.onFrame(data, size, pts);
}

void VideoHandler::onMetadataValue(std::int64_t value) {
    callables_.onMetadataValue(value);
}

void VideoHandler::onMetadataPair(std::int64_t first, std::int64_t second) {
    callables_.onMetadataPair(first, second);
}

ko_player::ResourceGuard VideoHandler::lockFrameBuffer() {
    return callables_.lockFrameBuffer();
}
