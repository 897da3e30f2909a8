#pragma once

#include "base/Clock.h"
#include "output/VideoOutput.h"
#include "player/QueuedDecoder.h"
#include "queues/PlayerState.h"
#include "records/Handlers.h"
#include "records/Metadata.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

struct AVCodecParameters;

namespace ko_player {

/// Packet channel, queued decoder and video output, joined. Used by the thread that feeds the player; the
/// decoder and output threads run inside.
class VideoPipeline {
public:
    enum class PushResult { NotOpened, Full, Ended, Pushed };

    VideoPipeline(std::shared_ptr<VideoHandler> handler, std::shared_ptr<VideoState> state,
                  base::Clock& clock, DecodeRules rules = {});

    /// Starts the output.
    void start(std::chrono::seconds firstTimeout, std::chrono::seconds nextTimeout);

    /// The size that the stream tells for its pictures (pixels, above zero), for the handler to prepare for
    /// it. Ignored once the decoder runs.
    void expectPicture(int width, int height);

    /// Starts the decoder. Throws std::logic_error "VideoPipeline::open when not started" or
    /// "VideoPipeline::open second call", and what ff_wrap::Decoder throws.
    void open(const AVCodecParameters* parameters);

    /// Makes the packet's decode time stamp (milliseconds) monotonic, moves its presentation time with it,
    /// and queues it.
    PushResult push(const std::shared_ptr<ff_wrap::Packet>& packet, details::Blocking blocking);

    /// Tied to the next video packet that is pushed; replaces a record that still waits for one.
    void setPendingMetadata(const Metadata& metadata) { pendingMetadata_ = metadata; }

    /// The end of a stream behind which the pipeline stays open: the decoder gives away what it holds, where
    /// the rules ask for that.
    void drain();

    /// No more input: what is queued plays out, then both threads end.
    void close();
    void joinDecoder();
    void joinOutput();

private:
    void makeMonotonic(ff_wrap::Packet& packet);
    /// Publishes the packet's time, which is returned.
    std::int64_t publishTime(const ff_wrap::Packet& packet);
    void queueMetadata(std::int64_t timestampMs);

    const DecodeRules rules_;
    std::optional<std::int64_t> lastDtsMs_; ///< of the newest packet
    bool isFirst_ = true;                   ///< no packet has been pushed
    const std::shared_ptr<VideoState> state_;
    Metadata pendingMetadata_;
    const std::shared_ptr<MetadataQueue> metadata_;
    const std::shared_ptr<PacketChannel> packets_;
    const std::shared_ptr<FrameQueue> frames_;
    const std::shared_ptr<VideoHandler> handler_;
    base::Clock& clock_;
    std::unique_ptr<VideoOutput> output_;    ///< null until start()
    std::unique_ptr<QueuedDecoder> decoder_; ///< null until open(); ends before the output does
};

} // namespace ko_player
