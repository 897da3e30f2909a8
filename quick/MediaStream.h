#pragma once

#include "parent/NewestPicture.h"
#include "parent/StreamPlayer.h"

#include <QQuickItem>
#include <QString>

namespace mediaworker::quick {

/// Makes MediaStream known to QML: `import Mediaworker 1.0`. Call it before QML is loaded that imports it.
void registerTypes();

/// Shows a stream:
///
///     MediaStream {
///         source: "http://camera.example/live.flv"
///         anchors.fill: parent
///     }
///
/// A worker of its own decodes it, and ends with the item. A live stream that ends is started again, and the
/// last picture stays meanwhile. The picture keeps its aspect, in the middle; around it, and before the first
/// one, the item is transparent. Without a size of its own, the item has the picture's. What it does is told
/// by properties, for whatever the application shows of that.
///
/// As every item, it belongs to the thread of the application. The program needs the worker, "mediaworker",
/// beside its own file or in the PATH: or see WorkerProcess::setProgram().
class MediaStream : public QQuickItem {
    Q_OBJECT
    /// What is played: FLV over http or https, or a local file ("file:///…"). Empty: nothing.
    Q_PROPERTY(QString source READ source WRITE setSource NOTIFY sourceChanged)
    /// The picture stands still, whatever is played.
    Q_PROPERTY(bool paused READ isPaused WRITE setPaused NOTIFY pausedChanged)
    /// 0 to 100, which it is at first; heard unless muted.
    Q_PROPERTY(int volume READ volume WRITE setVolume NOTIFY volumeChanged)
    /// Nothing is heard. At first it is not so.
    Q_PROPERTY(bool muted READ isMuted WRITE setMuted NOTIFY mutedChanged)
    /// See StreamJob::lowLatency; at first it is not so. What plays is started again with it.
    Q_PROPERTY(bool lowLatency READ hasLowLatency WRITE setLowLatency NOTIFY lowLatencyChanged)
    /// What the stream does now.
    Q_PROPERTY(PlaybackState playbackState READ playbackState NOTIFY playbackStateChanged)
    /// Pictures come.
    Q_PROPERTY(bool playing READ isPlaying NOTIFY playbackStateChanged)
    /// The state for people, without a capital letter: "buffering", "the server answered 404 – again in 4 s".
    Q_PROPERTY(QString stateText READ stateText NOTIFY stateTextChanged)
    /// Why nothing plays, in words without a full stop and without passwords; empty while it does.
    Q_PROPERTY(QString problem READ problem NOTIFY problemChanged)
    /// As it was delivered; empty before the first picture.
    Q_PROPERTY(QSize pictureSize READ pictureSize NOTIFY pictureSizeChanged)

public:
    /// What the stream does: mediaworker::parent::PlaybackState for QML.
    enum class PlaybackState {
        Idle,       ///< nothing was played yet
        Connecting, ///< the worker has not connected to this process yet
        Buffering,  ///< there is no picture, or none any more for now
        Playing,    ///< pictures come
        Paused,     ///< by the application
        Ended,      ///< see problem(); it may be started again
    };
    Q_ENUM(PlaybackState)

    /// Plays nothing yet.
    explicit MediaStream(QQuickItem* parent = nullptr);
    /// Ends the worker.
    ~MediaStream() override;
    MediaStream(const MediaStream&) = delete;
    MediaStream& operator=(const MediaStream&) = delete;

    // Of the properties with these names.

    [[nodiscard]] const QString& source() const noexcept { return source_; } ///< see the property
    /// Played at once, or when QML has made the item.
    void setSource(const QString& url);
    [[nodiscard]] bool isPaused() const noexcept { return player_.isPaused(); }   ///< see the property
    void setPaused(bool isPaused);                                                ///< see the property
    [[nodiscard]] int volume() const noexcept { return player_.volume(); }        ///< see the property
    void setVolume(int percent);                                                  ///< see the property
    [[nodiscard]] bool isMuted() const noexcept { return player_.isMuted(); }     ///< see the property
    void setMuted(bool isMuted);                                                  ///< see the property
    [[nodiscard]] bool hasLowLatency() const noexcept { return hasLowLatency_; }  ///< see the property
    void setLowLatency(bool hasLowLatency);                                       ///< see the property
    [[nodiscard]] PlaybackState playbackState() const noexcept { return state_; } ///< see the property
    /// See the property.
    [[nodiscard]] bool isPlaying() const noexcept { return state_ == PlaybackState::Playing; }
    [[nodiscard]] const QString& stateText() const noexcept { return stateText_; }   ///< see the property
    [[nodiscard]] const QString& problem() const noexcept { return problem_; }       ///< see the property
    [[nodiscard]] const QSize& pictureSize() const noexcept { return pictureSize_; } ///< see the property

    /// The newest of the same again, now and in a new worker. The picture stays meanwhile.
    Q_INVOKABLE void restart();

    /// For everything else: figures, the worker and its log, when streams are started again.
    [[nodiscard]] parent::StreamPlayer& player() noexcept { return player_; }

    /// Plays the source that QML has set.
    void componentComplete() override;

Q_SIGNALS:
    void sourceChanged();        ///< of the property
    void pausedChanged();        ///< of the property
    void volumeChanged();        ///< of the property
    void mutedChanged();         ///< of the property
    void lowLatencyChanged();    ///< of the property
    void playbackStateChanged(); ///< of the property
    void stateTextChanged();     ///< of the property
    void problemChanged();       ///< of the property
    void pictureSizeChanged();   ///< of the property

protected:
    /// The newest picture as a texture. Called from the scene graph's thread while this item's waits.
    QSGNode* updatePaintNode(QSGNode* old, UpdatePaintNodeData* data) override;

private:
    void play();
    void refresh();
    void setPictureSize(const QSize& size);

    QString source_;
    bool hasLowLatency_ = false;
    PlaybackState state_ = PlaybackState::Idle;
    QString stateText_;
    QString problem_;
    QSize pictureSize_{0, 0};

    parent::NewestPicture newest_;
    quint64 textured_ = 0; ///< newest_.copies() of the picture that the node has

    parent::StreamPlayer player_; ///< last: it may speak while it goes
};

} // namespace mediaworker::quick
