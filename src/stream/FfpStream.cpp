#include "stream/FfpStream.h"

#include "base/ImmediateExit.h"
#include "base/Log.h"
#include "base/ThreadEntry.h"
#include "player/Engine.h"
#include "sound/AudioHandler.h"
#include "sound/SoundModule.h"
#include "stream/ExitCodes.h"
#include "stream/LocalPath.h"
#include "stream/PictureGeometry.h"
#include "stream/StreamTiming.h"
#include "stream/VideoHandler.h"

#include <QCoreApplication>

#include <exception>
#include <system_error>

namespace {

/// A rejected chunk shorter than this is most likely a server's message, worth reading.
constexpr int kShortestSilentChunk = 1024;

void loadCodecs() {
    base::enterThread("codec loader");
    ko_player::loadCodecs();
}

/// What the sound device is asked to hold. Sound that keeps step with the pictures must not lie in it for
/// long; that of a stream without buffering comes no sooner than it is heard, and is late by all that lies
/// there.
int deviceBufferMs(ko_player::SyncPolicy sync, bool buffering) {
    constexpr int kOwnRhythmMs = 1000;
    constexpr int kInStepMs = 400;
    constexpr int kUnbufferedMs = 100;
    if (sync == ko_player::SyncPolicy::StartTogether) {
        return kOwnRhythmMs;
    }
    return buffering ? kInStepMs : kUnbufferedMs;
}

/// The system has no thread for us: without it nothing would be shown, or ever end.
[[noreturn]] void endWithoutThread(const std::system_error& error) {
    base::logLine("can't start a thread: ", error.what());
    base::exitNow(exit_code::kFailure);
}

} // namespace

FfpStream::FfpStream(const QString& url, const QString& channelName, const QString& serverName,
                     const ko_player::Options& options, const std::function<void()>& beforeThreads)
    : StreamBase(channelName, serverName, beforeThreads),
      audio_([this](const std::function<void()>& function) { runOnLinkThread(function); },
             soundModule(QCoreApplication::applicationDirPath()), base::steadyClock(),
             deviceBufferMs(options.sync, streamTiming(url, options.buffering).buffering)),
      explains_(options.explains) {
    auto video = std::make_shared<VideoHandler>(VideoHandler::Callables{
        .onStopped = [this] { onVideoStopped(); },
        .onVideoParams = [this](const ko_player::VideoParams& in,
                                ko_player::VideoParams& out) { return onVideoParams(in, out); },
        .onFrame = [this](const std::uint8_t*, int, std::int64_t pts) { sendFrame(pts); },
        .onMetadataValue = [this](std::int64_t value) { sendAbsoluteTime(value); },
        .onMetadataPair = [this](std::int64_t first, std::int64_t second) { sendFragment(first, second); },
        .lockFrameBuffer = [this] { return lockPicture(); },
        .expectPicture = [this](int width, int height) { expectPicture(width, height); },
    });
    auto audio = std::make_shared<AudioHandler>(AudioHandler::Callables{
        .onAudioParams = [this](const ko_player::AudioParams& in,
                                ko_player::AudioParams& out) { return audio_.setParams(in, out); },
        .onAudioData = [this](const std::uint8_t* data, int size) { audio_.write(data, size); },
        .soundLevel = [this] { return audio_.level(); },
        .onAudioPause = [this](bool paused) { audio_.setPaused(paused); },
    });
    player_ =
        std::make_unique<ko_player::Player>(std::move(video), std::move(audio), base::steadyClock(), options);

    const StreamTiming timing = streamTiming(url, options.buffering);
    for (const std::string& line : timing.logLines) {
        base::logLine(line);
    }
    try {
        player_->start(timing.buffering ? ko_player::Buffering::On : ko_player::Buffering::Off,
                       {.first = timing.firstFrame, .next = timing.nextFrame});
    } catch (const std::system_error& error) {
        endWithoutThread(error);
    }
    openCommands();

    if (timing.isHttp) {
        playResponse(url);
    } else {
        playLocalFile(url);
    }
}

FfpStream::~FfpStream() {
    stopping_ = true;
    // Sound may be on its way to the device, so the link thread has to outlive the engine.
    runOnLinkThread([this] { closeCommands(); });
    player_.reset();
    audio_.stop();
    stopLinkThread();
}

void FfpStream::setPause(bool paused) {
    if (player_) {
        player_->setPause(paused);
    }
}

void FfpStream::setVolume(int percent) {
    audio_.setVolume(percent);
}

void FfpStream::stopAudio() {
    audio_.stop();
}

void FfpStream::startAudio() {
    audio_.start();
}

void FfpStream::playResponse(const QString& url) {
    httpClient_.get(
        url, [this](const QByteArray& bytes) { onData(bytes); }, [this] { onFinished(); });
    try {
        // Last: while a library is being loaded, the system lets no other thread begin.
        codecLoader_ = std::jthread(loadCodecs);
    } catch (const std::system_error& error) {
        // Whoever needs the codecs loads them.
        base::logLine("can't load the codecs ahead: ", error.what());
    }
}

void FfpStream::playLocalFile(const QString& url) {
    try {
        player_->playFile(localPath(url).c_str());
    } catch (const std::system_error& error) {
        endWithoutThread(error);
    } catch (const std::exception& e) {
        // A file with several videos, say, shows none: the time-out ends the process with its code. Where the
        // video thread has ended, that ends it.
        base::logAt("FfpStream::playLocalFile", e.what());
    }
}

void FfpStream::onData(const QByteArray& bytes) {
    if (!player_) {
        return;
    }
    if (!player_->consume(reinterpret_cast<const std::uint8_t*>(bytes.constData()),
                          static_cast<std::size_t>(bytes.size()))) {
        if (bytes.size() < kShortestSilentChunk) {
            base::logLine(bytes.toStdString());
        }
        base::exitNow(exit_code::kFailure);
    }
}

void FfpStream::onFinished() {
    const std::string failure = failureText(httpClient_.responseEnd());
    if (explains_ && !failure.empty()) {
        base::logLine("http failed: ", failure);
    }
    base::logLine("http reader finished");
    stopping_ = true;
    if (player_) {
        player_->stop();
    }
    drainLink();
    base::exitNow(exit_code::kResponseEnded);
}

std::uint8_t* FfpStream::onVideoParams(const ko_player::VideoParams& in, ko_player::VideoParams& out) {
    const PictureGeometry geometry = pictureGeometry(in);
    out = geometry.params;
    if (geometry.rule == AspectRule::Stretched) {
        base::logAt(__func__, "Out video resize to: ", out);
    } else if (geometry.rule == AspectRule::Ignored) {
        base::logAt(__func__, "Out video ignore invalid sar: ", out);
    }
    setupPicture(static_cast<std::uint32_t>(out.width), static_cast<std::uint32_t>(out.height));
    return picture();
}

void FfpStream::onVideoStopped() {
    base::logLine("video thread has stopped");
    if (!stopping_) {
        base::logLine("video thread has stopped unexpectedly, exit");
        base::exitNow(exit_code::kVideoStopped);
    }
}
