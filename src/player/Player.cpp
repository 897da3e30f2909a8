#include "player/Player.h"

#include "base/Log.h"
#include "base/Saturating.h"
#include "ffmpeg/StreamProbe.h"
#include "flv/CodecMapping.h"
#include "player/BufferWatcher.h"
#include "player/LocalFile.h"

#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace ko_player {

using details::Blocking;
using details::PauseReason;

namespace {

/// Sound that keeps step with the pictures may wait for room in its channel while so much video lies ahead of
/// the picture on screen: until that is shown, as much sound has been heard.
constexpr std::int64_t kVideoAheadMs = 1000;

std::shared_ptr<ShownRecord> recordFor(SyncPolicy policy) {
    return policy == SyncPolicy::ByTimeStamps ? std::make_shared<ShownRecord>() : nullptr;
}

} // namespace

Player::Player(std::shared_ptr<VideoHandler> videoHandler, std::shared_ptr<AudioHandler> audioHandler,
               base::Clock& clock, const Options& options)
    : clock_(clock), options_(options), pauseCtrl_(std::make_shared<details::PauseCtrl>()),
      videoState_(std::make_shared<VideoState>(pauseCtrl_, recordFor(options.sync))),
      playerState_(std::make_shared<PlayerState>(pauseCtrl_, videoState_->shown)),
      flvHandler_(std::make_shared<FlvHandler>(options.flv)), reader_(flvHandler_.get(), options.flv),
      video_(std::move(videoHandler), videoState_, clock, decodeRulesOf(options.flv)),
      audio_(std::move(audioHandler), playerState_, clock, decodeRulesOf(options.flv)) {
    flvHandler_->onVideoParams = [this](const AVCodecParameters* parameters) {
        startVideo(parameters);
        return true;
    };
    flvHandler_->onVideoPacket = [this](const std::shared_ptr<ff_wrap::Packet>& packet) {
        pushVideo(packet);
    };
    flvHandler_->onAudioParams = [this](const AVCodecParameters* parameters) {
        return startAudio(parameters);
    };
    flvHandler_->onAudioPacket = [this](const std::shared_ptr<ff_wrap::Packet>& packet) {
        pushAudio(packet);
    };
    flvHandler_->expectPicture = [this](int width, int height) { video_.expectPicture(width, height); };
    flvHandler_->onMetadata = [this](const Metadata& metadata) { video_.setPendingMetadata(metadata); };
}

Player::~Player() {
    if (watcher_) {
        watcher_->stop(); // and goes later: its task may be asking it for its generation
    }
    pauseCtrl_->stop(); // the output threads may wait there
}

void Player::start(Buffering buffering, FrameTimeouts timeouts) {
    const std::lock_guard lock(mutex_);
    watcher_ = std::make_unique<BufferWatcher>(
        timeouts.next, [this](std::uint64_t generation) { cancelBuffering(generation); }, clock_);
    buffering_.enable(buffering == Buffering::On);
    beginBuffering();
    video_.start(timeouts.first, timeouts.next);
}

bool Player::consume(const std::uint8_t* data, std::size_t size) {
    const std::lock_guard lock(mutex_);
    try {
        if (const auto error = reader_.consume(data, size)) {
            base::logAt("ko_player::Player::consumeImpl", error->text());
            return false;
        }
        return true;
    } catch (const std::exception& error) {
        base::logAt("ko_player::Player::consume", "consume failed with exception: ", error.what());
        return false;
    }
}

void Player::setPause(bool paused) {
    base::logAt("ko_player::Player::setPause", "paused: ", paused);
    if (paused) {
        pauseCtrl_->set(PauseReason::User);
    } else {
        pauseCtrl_->clear(PauseReason::User);
    }
}

void Player::stop() {
    const std::lock_guard lock(mutex_);
    if (watcher_) {
        watcher_->disarm();
    }
    pauseCtrl_->clear(PauseReason::Buffering);
    buffering_.enable(false);
    video_.close();
    audio_.close();
    video_.joinDecoder();
    video_.joinOutput();
    audio_.joinDecoder();
    audio_.joinOutput();
}

void Player::startVideo(const AVCodecParameters* parameters) {
    // The strict reading ends the stream at such a codec, with FFmpeg's reason.
    if (options_.flv == FlvReading::Standard && !ff_wrap::hasDecoder(parameters->codec_id)) {
        base::logLine("pictures unavailable: ", codecName(parameters->codec_id), ": no decoder");
        return;
    }
    video_.open(parameters);
}

bool Player::startAudio(const AVCodecParameters* parameters) {
    try {
        return audio_.open(parameters);
    } catch (const std::system_error&) {
        throw; // no thread for it: the system can give no more
    } catch (const std::exception& error) {
        base::logAt("ko_player::Player::startAudio", "failed with exception: ", error.what());
        return false;
    }
}

void Player::pushVideo(const std::shared_ptr<ff_wrap::Packet>& packet) {
    using Result = VideoPipeline::PushResult;
    // While buffering the picture stands still, so a full channel can only be left by ending the buffering;
    // while playing, waiting for room is what paces the reader.
    const bool wasBuffering = buffering_.isBuffering();
    Result result = video_.push(packet, wasBuffering ? Blocking::No : Blocking::Yes);
    if (result == Result::Full && wasBuffering) {
        finishBuffering();
        result = video_.push(packet, Blocking::Yes);
    }
    switch (result) {
    case Result::NotOpened:
        return;
    case Result::Ended:
        throw std::runtime_error("Player::VideoPipeline stopped");
    case Result::Full:
        base::logAt("ko_player::Player::pushVideo", "WARN!: vpipeline.push would block in not buffering");
        return;
    case Result::Pushed:
        afterPush();
        return;
    }
}

void Player::afterPush() {
    switch (buffering_.afterPush(
        {.newestMs = videoState_->newestPushedMs, .shownMs = videoState_->lastShownMs})) {
    case BufferingRules::Action::Begin:
        beginBuffering();
        break;
    case BufferingRules::Action::Finish:
        finishBuffering();
        break;
    case BufferingRules::Action::None:
        break;
    }
}

void Player::pushAudio(const std::shared_ptr<ff_wrap::Packet>& packet) {
    audio_.countPacket();
    if (!audio_.isOpened()) {
        return;
    }
    // While buffering nothing is heard, so nothing makes room: a wait would last for ever, and with the
    // mutex held even the time-out of the buffering could not end it. A full channel ends it instead.
    if (buffering_.isBuffering()) {
        if (audio_.push(packet, Blocking::No) != details::PushResult::Full) {
            return;
        }
        finishBuffering();
    }
    // While the picture plays, sound must never hold up the reader, unless enough video lies ahead for that
    // not to matter.
    const bool mayWait = playerState_->shown && isVideoAhead();
    if (audio_.push(packet, mayWait ? Blocking::Yes : Blocking::No) == details::PushResult::Full) {
        base::logAt("ko_player::Player::pushAudio", "buf video, ignore audio");
    }
}

bool Player::isVideoAhead() const {
    return base::subtractSaturated(videoState_->newestPushedMs, videoState_->lastShownMs) > kVideoAheadMs;
}

void Player::beginBuffering() {
    if (!buffering_.begin()) {
        return;
    }
    base::logAt("ko_player::Player::beginBuffering", "buf start: p: ", videoState_->lastShownMs,
                ", l: ", videoState_->newestPushedMs);
    pauseCtrl_->set(PauseReason::Buffering);
    watcher_->arm();
}

void Player::finishBuffering() {
    watcher_->disarm();
    const std::int64_t l = videoState_->newestPushedMs;
    base::logAt("ko_player::Player::finishBuffering", "buf end: p: ", videoState_->lastShownMs, ", l: ", l);
    if (buffering_.finish(l)) {
        pauseCtrl_->clear(PauseReason::Buffering);
    }
}

void Player::cancelBuffering(std::uint64_t generation) {
    base::logAt("ko_player::Player::cancelBuffering", "buf canceled: ", generation);
    const std::lock_guard lock(mutex_);
    if (buffering_.isBuffering() && generation == watcher_->generation()) {
        finishBuffering();
    }
}

} // namespace ko_player
