#pragma once

#include "records/MediaParams.h"
#include "records/ResourceGuard.h"

#include <cstdint>
#include <optional>

namespace ko_player {

/// How much sound a device holds.
struct SoundLevel {
    std::uint64_t device = 0; ///< which: another number, another device
    bool isPlaying = false;   ///< it has begun to play what it was given, and still has some
    double heldMs = 0;        ///< handed over and not heard yet
    double roomMs = 0;        ///< what it would take now
    double capacityMs = 0; ///< what it takes when it is empty; most devices begin to play when that is full
};

/// Where decoded pictures leave the engine. Called from the video output thread, where nothing else is said.
class VideoHandler {
public:
    VideoHandler() = default;
    VideoHandler(const VideoHandler&) = delete;
    VideoHandler& operator=(const VideoHandler&) = delete;
    virtual ~VideoHandler() = default;

    /// No picture arrived in time; true means keep waiting.
    virtual bool onFrameTimeout() = 0;
    /// The presentation thread ends.
    virtual void onStopped() = 0;
    /// A new picture geometry: fill `out` and return the buffer to convert into, of the size that `out` asks
    /// for with rows packed and kPictureTailBytes more, or null to let the converter use its own.
    virtual std::uint8_t* onVideoParams(const VideoParams& in, VideoParams& out) = 0;
    /// A converted picture is due now. `size` is the picture buffer's size in bytes, `pts` milliseconds.
    virtual void onFrame(const std::uint8_t* data, int size, std::int64_t pts) = 0;
    virtual void onMetadataValue(std::int64_t value) = 0;
    virtual void onMetadataPair(std::int64_t first, std::int64_t second) = 0;
    /// Exclusive use of the picture buffer while it is written.
    virtual ResourceGuard lockFrameBuffer() = 0;
    /// The stream says that its pictures will have this size, in pixels, above zero. A hint, which may be
    /// wrong or never come: time to prepare something before the first picture. Called before the first
    /// picture only, from the thread that feeds the engine.
    virtual void expectPicture(int /*width*/, int /*height*/) {}
};

/// Where decoded sound leaves the engine.
class AudioHandler {
public:
    AudioHandler() = default;
    AudioHandler(const AudioHandler&) = delete;
    AudioHandler& operator=(const AudioHandler&) = delete;
    virtual ~AudioHandler() = default;

    /// Called by the thread that opens the audio pipeline, before its output exists: fill `out` with the
    /// format to convert to. False refuses the audio.
    virtual bool onAudioParams(const AudioParams& in, AudioParams& out) = 0;
    /// Play these bytes (output format, packed). Called from the audio output thread.
    virtual void onAudioData(const std::uint8_t* data, int size) = 0;

    // For sound that keeps step with the pictures; called from the audio output thread.
    /// Nothing while there is no device.
    [[nodiscard]] virtual std::optional<SoundLevel> soundLevel() { return std::nullopt; }
    /// The device stands still, with what it holds, or goes on.
    virtual void onAudioPause(bool /*paused*/) {}
};

} // namespace ko_player
