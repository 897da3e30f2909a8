#pragma once

#include "parent/FrameChannel.h"

#include <QImage>
#include <QWidget>

#include <chrono>
#include <functional>

namespace mediaworker::view {

/// Shows the newest picture of a frame channel, as large as it fits, on black.
///
/// A picture is copied once, out of the frame file into an image that is used again and again, and only when
/// it is to be painted: pictures that come while the widget is hidden, or faster than the window can be
/// painted, cost nothing. Painting scales it; the semaphore is not held meanwhile, because the worker waits
/// for it.
class PictureWidget : public QWidget {
    Q_OBJECT

public:
    /// Gives the channel to read from at this moment; may be null.
    using Channel = std::function<parent::FrameChannel*()>;

    explicit PictureWidget(Channel channel, QWidget* parent = nullptr);

    /// A new picture lies in the channel.
    void announce();
    /// Forgets the picture: a new stream begins.
    void clear();
    /// Takes a picture that was announced but not painted yet, while the channel is still there.
    void takeNewest();

    /// The newest picture, as it was delivered. Null before the first one.
    [[nodiscard]] QImage picture();
    [[nodiscard]] QSize pictureSize() const { return image_.size(); }
    /// Where the picture is painted.
    [[nodiscard]] QRect pictureRect() const;

    /// Pictures copied out of the frame file.
    [[nodiscard]] quint64 copies() const noexcept { return copies_; }
    /// Different pictures painted.
    [[nodiscard]] quint64 shown() const noexcept { return shown_; }
    /// Those per second, from the first to the last; 0 for less than two.
    [[nodiscard]] double shownPerSecond() const;

Q_SIGNALS:
    void pictureSizeChanged();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Channel channel_;
    QImage image_; ///< with the bytes as they are in the frame file
    bool isAnnounced_ = false;
    bool isPainted_ = true; ///< image_ has been, since it was copied
    quint64 copies_ = 0;
    quint64 shown_ = 0;
    std::chrono::steady_clock::time_point firstShownAt_{};
    std::chrono::steady_clock::time_point lastShownAt_{};
};

} // namespace mediaworker::view
