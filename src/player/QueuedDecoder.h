#pragma once

#include "ffmpeg/Decoder.h"
#include "player/DecodeRules.h"
#include "queues/MediaQueues.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <thread>

struct AVFrame;

namespace ko_player {

/// Turns packets into frames on a thread of its own, from a packet channel into a frame queue. Its thread is
/// the only user of the codec context. An empty packet is the end of a stream; where rules say that the
/// decoder is drained, more may follow it.
class QueuedDecoder {
public:
    /// Starts the thread, which is called `threadName` (at most 15 characters, a literal). Throws
    /// std::system_error.
    QueuedDecoder(std::unique_ptr<ff_wrap::Decoder> decoder, std::shared_ptr<PacketChannel> packets,
                  std::shared_ptr<FrameQueue> frames, const char* threadName, DecodeRules rules = {});
    /// Abandons what is queued and joins the thread.
    ~QueuedDecoder();
    QueuedDecoder(const QueuedDecoder&) = delete;
    QueuedDecoder& operator=(const QueuedDecoder&) = delete;

    /// Stops the channel and aborts the frame queue, so that both neighbours of the thread and the thread
    /// itself end. Thread-safe.
    void stop();

    /// Waits for the thread to end by itself, which it does once the channel is closed and drained. Throws
    /// std::system_error when called from that thread.
    void join();

private:
    enum class DecodeResult { NoMoreInput = -1, EndOfStream = 0, Frame = 1 };

    void decodeTask();
    void decodeFrames();
    [[nodiscard]] DecodeResult decode(ff_wrap::Frame& frame);
    /// False when there is no more input.
    [[nodiscard]] bool sendPacket();
    /// Asks the codec for what it still holds, once. False where it is not asked.
    [[nodiscard]] bool beginDrain();
    /// The time that the outputs go by, milliseconds.
    [[nodiscard]] std::int64_t timeOf(const AVFrame& frame);

    const DecodeRules rules_;
    std::unique_ptr<ff_wrap::Decoder> decoder_;
    // The thread's own.
    bool inputEnded_ = false;
    std::optional<std::int64_t> lastTimeMs_; ///< of the frame before
    std::int64_t spacingMs_ = 1;             ///< between the last two frames with different times
    std::shared_ptr<ff_wrap::Packet>
        pendingPacket_; ///< refused by the codec, offered again first; the thread's own
    const std::shared_ptr<PacketChannel> packets_;
    const std::shared_ptr<FrameQueue> frames_;
    const char* const threadName_;
    std::thread thread_;
};

} // namespace ko_player
