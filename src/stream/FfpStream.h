#pragma once

#include "net/HTTPClient.h"
#include "player/Player.h"
#include "sound/AudioSink.h"
#include "stream/StreamBase.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

/// Plays one stream, or one local file, for the parent: wires the input, the engine and the outputs together,
/// carries out the parent's commands, and decides when the process ends. Lives as long as the process.
class FfpStream : public Ostra::StreamBase {
    Q_OBJECT

public:
    /// Starts the request, to which the event loop brings the answer; or plays the local file, and returns
    /// when it has been read. `beforeThreads`: see StreamBase.
    FfpStream(const QString& url, const QString& channelName, const QString& serverName,
              const ko_player::Options& options = {}, const std::function<void()>& beforeThreads = {});
    FfpStream(const FfpStream&) = delete;
    FfpStream& operator=(const FfpStream&) = delete;
    ~FfpStream() override;

    void setPause(bool paused) override;
    void setVolume(int percent) override;
    void stopAudio() override;
    void startAudio() override;

protected:
    /// The pictures have come to their end: fatal, unless it was asked for. Called from the video output
    /// thread.
    void onVideoStopped();

private:
    void playResponse(const QString& url);
    void playLocalFile(const QString& url);

    // Main thread.
    void onData(const QByteArray& bytes);
    void onFinished();

    // Video output thread.
    std::uint8_t* onVideoParams(const ko_player::VideoParams& in, ko_player::VideoParams& out);

    AudioSink audio_;
    const bool explains_; ///< see ko_player::Options
    /// Set just before a deliberate stop, so that the end of the video thread is not taken for a failure.
    std::atomic<bool> stopping_{false};
    std::unique_ptr<ko_player::Player> player_;
    CorvaneClient::Net::HTTPClient httpClient_;
    /// Loads the codecs while the server answers.
    std::jthread codecLoader_;
};
