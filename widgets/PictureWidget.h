#pragma once

#include "parent/NewestPicture.h"

#include <QImage>
#include <QWidget>

#include <chrono>
#include <functional>

namespace mediaworker::parent {
class FrameChannel;
}

namespace mediaworker::widgets {

/// Shows the newest picture of a frame channel, as large as it fits, on black.
///
/// A picture is copied only when it is to be painted: pictures that come while the widget is hidden, or
/// faster than the window can be painted, cost nothing. Painting scales it, once and to the pixels of the
/// screen; the semaphore is not held meanwhile, because the worker waits for it.
class PictureWidget : public QWidget {
    Q_OBJECT

public:
    /// Gives the channel to read from at this moment; may be null.
    using Channel = std::function<parent::FrameChannel*()>;

    /// Black until announce().
    explicit PictureWidget(Channel channel, QWidget* parent = nullptr);

    /// A new picture lies in the channel.
    void announce();
    /// Forgets the picture: a new stream begins.
    void clear();
    /// Takes a picture that was announced but not painted yet, while the channel is still there.
    void takeNewest();

    /// The newest picture, as it was delivered. Null before the first one.
    [[nodiscard]] QImage picture();
    /// Of the one that is shown; empty before the first one.
    [[nodiscard]] QSize pictureSize() const { return newest_.image().size(); }
    /// Where the picture is painted.
    [[nodiscard]] QRect pictureRect() const;

    /// Pictures copied out of the frame file.
    [[nodiscard]] quint64 copies() const noexcept { return newest_.copies(); }
    /// Different pictures painted.
    [[nodiscard]] quint64 shown() const noexcept { return shown_; }
    /// Those per second, from the first to the last; 0 for less than two.
    [[nodiscard]] double shownPerSecond() const;

Q_SIGNALS:
    /// It has another pictureSize(), or a first one. Comes from the event loop.
    void pictureSizeChanged();

protected:
    /// The picture, and black where there is none.
    void paintEvent(QPaintEvent* event) override;

private:
    Channel channel_;
    parent::NewestPicture newest_;
    bool isPainted_ = true; ///< the newest one has been, since it was copied
    quint64 shown_ = 0;
    std::chrono::steady_clock::time_point firstShownAt_{};
    std::chrono::steady_clock::time_point lastShownAt_{};
};

} // namespace mediaworker::widgets
