#pragma once

#include "parent/StreamPlayer.h"
#include "widgets/PictureWidget.h"

#include <QString>

class QFrame;
class QLabel;

namespace mediaworker::widgets {

/// Shows a stream:
///
///     auto* const widget = new mediaworker::widgets::StreamWidget;
///     widget->play(QStringLiteral("http://camera.example/live.flv"));
///     widget->show();
///
/// A worker of its own decodes it, and ends with the widget. A live stream that ends is started again, and
/// the last picture stays meanwhile. The picture keeps its aspect, on black; while none plays, words over it
/// say why. What is heard is under setVolume() and setMuted().
///
/// As every widget, it belongs to the thread of the application. The program needs the worker, "mediaworker",
/// beside its own file or in the PATH: or see WorkerProcess::setProgram().
class StreamWidget : public PictureWidget {
    Q_OBJECT

public:
    /// Plays nothing yet.
    explicit StreamWidget(QWidget* parent = nullptr);
    /// Ends the worker.
    ~StreamWidget() override;
    StreamWidget(const StreamWidget&) = delete;
    StreamWidget& operator=(const StreamWidget&) = delete;

    /// Plays that, whatever was played before: FLV over http or https, or a local file ("file:///…").
    void play(const QString& url);
    /// The same with all that a worker can be asked for: a proxy, low latency.
    void play(const parent::StreamJob& job);
    /// The newest of the same again, now and in a new worker. The picture stays meanwhile.
    void restart();
    /// Ends it, for good. The picture stays.
    void stop();

    void setPaused(bool isPaused); ///< the picture stands still, or goes on; stays for what is played next
    void setVolume(int percent);   ///< 0 to 100, which it is at first; heard unless muted
    void setMuted(bool isMuted);   ///< at first it is not

    /// What it does now.
    [[nodiscard]] parent::PlaybackState state() const { return player_.state(); }
    /// Why nothing plays, in words without a full stop and without passwords; empty while it does.
    [[nodiscard]] QString problem() const { return player_.problemText(); }

    /// For words over the picture: none, or those that the widget has. Default: true.
    void setOverlayShown(bool isShown);
    /// What they are before anything was played. Default: nothing.
    void setIdleText(const QString& text);
    /// Puts a widget below the words, and owns it: a button, for example. It is seen when they are, unless it
    /// is hidden.
    void addToOverlay(QWidget* widget);

    /// For everything else: figures, the worker and its log, when streams are started again.
    [[nodiscard]] parent::StreamPlayer& player() noexcept { return player_; }
    /// @overload
    [[nodiscard]] const parent::StreamPlayer& player() const noexcept { return player_; }

    /// Room for a small picture; one of another shape is letterboxed.
    [[nodiscard]] QSize sizeHint() const override { return {640, 360}; }

Q_SIGNALS:
    /// It has another state().
    void stateChanged(mediaworker::parent::PlaybackState state);
    /// It has another problem(), or none any more.
    void problemChanged(const QString& problem);

private:
    void refresh();

    QFrame* overlay_;
    QLabel* overlayText_;
    bool isOverlayShown_ = true;
    QString idleText_;
    parent::PlaybackState state_ = parent::PlaybackState::Idle; ///< as it was told
    QString problem_;                                           ///< the same

    parent::StreamPlayer player_; ///< last: it may speak while it goes
};

} // namespace mediaworker::widgets
