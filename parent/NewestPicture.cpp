#include "parent/NewestPicture.h"

#include "parent/FrameChannel.h"

#include <chrono>
#include <cstring>
#include <utility>

namespace mediaworker::parent {

namespace {

// Longer than a worker converts a picture, and short enough for a window that nine stopped workers share.
constexpr std::chrono::milliseconds kPatience{60};

} // namespace

void NewestPicture::clear() {
    isAnnounced_ = false;
    image_ = {};
}

bool NewestPicture::take(FrameChannel* channel) {
    if (!std::exchange(isAnnounced_, false) || channel == nullptr) {
        return false;
    }
    const bool isTaken = channel->withPicture(
        [this](const std::uint8_t* bgra, int width, int height) {
            if (image_.size() != QSize(width, height) || !image_.isDetached()) {
                image_ = QImage(width, height, QImage::Format_RGB32);
            }
            if (!image_.isNull()) {
                // Rows of 32-bit pixels have no padding on either side.
                std::memcpy(image_.bits(), bgra, static_cast<std::size_t>(image_.sizeInBytes()));
            }
        },
        kPatience);
    if (!isTaken || image_.isNull()) {
        return false; // the next announcement tries again
    }
    ++copies_;
    return true;
}

} // namespace mediaworker::parent
