#pragma once

#include "base/Clock.h"
#include "flv/FlvHandler.h"
#include "flv/FlvReader.h"
#include "player/AudioPipeline.h"
#include "player/BufferingRules.h"
#include "player/VideoPipeline.h"
#include "records/Handlers.h"
#include "records/Options.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

struct AVCodecParameters;

namespace ko_player {

/// How long the video output waits for a picture before it asks the handler; at least a second.
struct FrameTimeouts {
    std::chrono::seconds first{1};
    std::chrono::seconds next{1};
};

enum class Buffering { Off, On };

/// The engine's front object: bytes of an FLV stream (or a local file) in, timed pictures and paced sound out
/// through the two handlers. It owns the demuxer, the pipelines and the buffering rules.
class Player {
public:
    Player(std::shared_ptr<VideoHandler> videoHandler, std::shared_ptr<AudioHandler> audioHandler,
           base::Clock& clock = base::steadyClock(), const Options& options = {});
    /// Abandons what is queued, ends all pauses and joins all threads.
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    /// Starts the video output and, if wanted, the first buffering period, which lasts at most
    /// `timeouts.next`. Call once, before any input. Throws std::system_error when a thread cannot be
    /// started; the player is then good for nothing but to be destroyed.
    void start(Buffering buffering, FrameTimeouts timeouts);

    /// Feeds the next bytes of the FLV stream; blocks while the video channel is full (back-pressure). False
    /// means that the stream cannot go on; the reason is in the log. Called from the thread that receives the
    /// stream.
    bool consume(const std::uint8_t* data, std::size_t size);

    /// Plays a local file through FFmpeg's demuxer, video only. Blocks the caller until the file is read to
    /// its end or cannot be read (the reason is in the log); pictures that are still queued play out after
    /// that. Throws std::runtime_error "Player::VideoPipeline stopped", what VideoPipeline::open throws, and
    /// std::system_error when a thread cannot be started. Call once.
    void playFile(const char* path);

    /// The user's pause. Thread-safe.
    void setPause(bool paused);
    /// How many outputs (of pictures, of sound) stand still in a pause, the user's or for buffering.
    /// Thread-safe.
    [[nodiscard]] int pausedOutputs() const { return pauseCtrl_->waiting(); }

    /// End of input: lets what was received play out and waits for it, also for the end of a user's pause.
    /// Not to be called from one of the engine's own threads.
    void stop();

private:
    class BufferWatcher;
    class LocalFile;

    void startVideo(const AVCodecParameters* parameters);
    bool startAudio(const AVCodecParameters* parameters);
    void pushVideo(const std::shared_ptr<ff_wrap::Packet>& packet);
    void pushAudio(const std::shared_ptr<ff_wrap::Packet>& packet);
    void afterPush();
    [[nodiscard]] bool isVideoAhead() const;
    void beginBuffering();
    void finishBuffering();
    void cancelBuffering(std::uint64_t generation);

    // Lock order: this mutex first, then that of the pause control, of a channel or of a queue. It is held by
    // consume() even while that blocks, by stop() across its joins, and by cancelBuffering(). Nothing waits
    // for room while buffering, so that the time-out can always end it.
    std::mutex mutex_;

    base::Clock& clock_;
    const Options options_;
    const std::shared_ptr<details::PauseCtrl> pauseCtrl_;
    const std::shared_ptr<VideoState> videoState_;
    const std::shared_ptr<PlayerState> playerState_;

    // Guarded by mutex_.
    std::shared_ptr<FlvHandler> flvHandler_;
    flv::FlvReader reader_;
    BufferingRules buffering_;
    std::unique_ptr<LocalFile> localFile_; ///< goes after the decoders, which may use it
    VideoPipeline video_;
    AudioPipeline audio_;

    /// Created by start(). Its task calls back into this object, and ends before anything else of it.
    std::unique_ptr<BufferWatcher> watcher_;
};

} // namespace ko_player
