#pragma once

#include "base/Clock.h"
#include "output/AudioBuffer.h"
#include "output/AudioSwr.h"
#include "output/SyncedSound.h"
#include "queues/MediaQueues.h"
#include "queues/PlayerState.h"
#include "records/Handlers.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <thread>

namespace ko_player {

/// The last stage of the audio pipeline. Its thread takes decoded sound from the frame queue, converts it and
/// hands it to the handler in parts on a fixed rhythm: 400 ms when playback starts or resumes after the
/// user's pause, then 200 ms every 180 ms. The rhythm, not the time stamps, paces sound; the handler's device
/// write absorbs the difference by waiting. Where the state has a record of the pictures shown, sound keeps
/// step with them instead: see SyncedSound.
class AudioOutput {
public:
    /// Starts the thread. `handler` may be empty. Throws std::logic_error "AudioBuffer invalid audio params".
    AudioOutput(std::shared_ptr<FrameQueue> frames, const AudioParams& out,
                std::shared_ptr<AudioHandler> handler, std::shared_ptr<PlayerState> state,
                base::Clock& clock);
    /// Closes the frame queue, which ends the thread within one cycle, and joins it. The pause control must
    /// be stopped first if a pause may be set.
    ~AudioOutput();
    AudioOutput(const AudioOutput&) = delete;
    AudioOutput& operator=(const AudioOutput&) = delete;

    /// Waits for the thread to end by itself, which it does once the frame queue is aborted and drained.
    /// Throws std::system_error when called from that thread.
    void join();

    // Milliseconds; thread-safe.
    [[nodiscard]] std::int64_t firstTimestampMs() const { return firstTimestampMs_; }
    [[nodiscard]] std::int64_t lastTimestampMs() const { return lastTimestampMs_; }
    /// The last frame's time stamp plus its duration, rounded up.
    [[nodiscard]] std::int64_t endTimestampMs() const { return endTimestampMs_; }

private:
    void audioTask();
    void playParts();
    void fill();
    /// The frame's sound in the output format, empty where that fails. Valid until the next call, and no
    /// longer than `frame`.
    [[nodiscard]] std::span<const std::uint8_t> convert(const AVFrame& frame);
    void writeBuffered();
    void playInStep();

    const std::shared_ptr<PlayerState> state_;
    const std::shared_ptr<FrameQueue> frames_;
    const std::shared_ptr<AudioHandler> handler_;
    base::Clock& clock_;

    // Owned by the thread.
    bool resync_ = true; ///< the next cycle starts with a large part
    AudioSwr converter_;
    const AudioParams out_;
    details::AudioBuffer buffer_;
    int partsWritten_ = 0;
    bool firstFrame_ = true;

    std::atomic<std::int64_t> lastTimestampMs_{0};
    std::atomic<std::int64_t> endTimestampMs_{0};
    std::atomic<std::int64_t> firstTimestampMs_{0};

    std::thread thread_;
};

} // namespace ko_player
