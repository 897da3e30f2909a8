#pragma once

#include <QImage>

namespace mediaworker::parent {

class FrameChannel;

/// The newest picture of a stream, for something that is painted now and then.
///
/// It is copied once, out of the frame file into an image that is used again and again, and only when take()
/// asks for it: pictures that come faster than they are painted cost nothing. Not thread-safe.
class NewestPicture {
public:
    /// A new picture lies in the channel.
    void announce() noexcept { isAnnounced_ = true; }
    /// Forgets the picture: a new stream begins.
    void clear();

    /// Copies what was announced since the last call. `channel` may be null. True if there is a new image();
    /// where there is none, the old one stays. Waits for a worker that keeps the semaphore, but not for long.
    bool take(FrameChannel* channel);

    /// As it was delivered, in Format_RGB32. Null before the first one. A copy of it stays as it is.
    [[nodiscard]] const QImage& image() const noexcept { return image_; }
    /// Pictures copied out of the frame file.
    [[nodiscard]] quint64 copies() const noexcept { return copies_; }

private:
    QImage image_;
    bool isAnnounced_ = false;
    quint64 copies_ = 0;
};

} // namespace mediaworker::parent
