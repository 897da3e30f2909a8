#include "player/VideoPipeline.h"

#include "base/Log.h"
#include "base/Saturating.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/rational.h>
}

#include <stdexcept>
#include <utility>

namespace ko_player {
namespace {

constexpr std::uint64_t kPacketCapacityBytes = 0x800000;
/// Few, because each is a whole picture: at 1080p about 3 MB.
constexpr std::size_t kFrameCapacity = 4;
constexpr std::size_t kMetadataCapacity = 150;
constexpr AVRational kMilliseconds{1, 1000};

} // namespace

VideoPipeline::VideoPipeline(std::shared_ptr<VideoHandler> handler, std::shared_ptr<VideoState> state,
                             base::Clock& clock)
    : state_(std::move(state)), metadata_(std::make_shared<MetadataQueue>(kMetadataCapacity)),
      packets_(std::make_shared<PacketChannel>(kPacketCapacityBytes)),
      frames_(std::make_shared<FrameQueue>(kFrameCapacity)), handler_(std::move(handler)), clock_(clock) {}

void VideoPipeline::start(std::chrono::seconds firstTimeout, std::chrono::seconds nextTimeout) {
    output_ = std::make_unique<VideoOutput>(frames_, metadata_, state_, firstTimeout, nextTimeout, handler_,
                                            clock_);
}

void VideoPipeline::expectPicture(int width, int height) {
    // Later, the output thread may be in the handler.
    if (!decoder_ && handler_) {
        handler_->expectPicture(width, height);
    }
}

void VideoPipeline::open(const AVCodecParameters* parameters) {
    if (!output_) {
        throw std::logic_error("VideoPipeline::open when not started");
    }
    if (decoder_) {
        throw std::logic_error("VideoPipeline::open second call");
    }
    decoder_ = std::make_unique<QueuedDecoder>(std::make_unique<ff_wrap::Decoder>(parameters, kMilliseconds),
                                               packets_, frames_, "video decoder");
}

VideoPipeline::PushResult VideoPipeline::push(const std::shared_ptr<ff_wrap::Packet>& packet,
                                              details::Blocking blocking) {
    if (!decoder_) {
        return PushResult::NotOpened;
    }
    makeMonotonic(*packet);
    queueMetadata((*packet)->dts);
    switch (packets_->push(packet, blocking)) {
    case details::PushResult::Pushed:
        return PushResult::Pushed;
    case details::PushResult::Full:
        return PushResult::Full;
    case details::PushResult::Ended:
        break;
    }
    return PushResult::Ended;
}

void VideoPipeline::makeMonotonic(ff_wrap::Packet& packet) {
    const std::int64_t last = state_->newestPushedMs;
    std::int64_t dts = packet->dts;
    if (dts < last) {
        dts = base::addSaturated(last, 1);
    }
    state_->newestPushedMs = dts;
    if (dts != packet->dts) {
        base::logAt("ko_player::VideoPipeline::push", "video packet time is fixed from: ", packet->dts,
                    ", to: ", dts);
        packet->dts = dts;
    }
}

void VideoPipeline::queueMetadata(std::int64_t timestampMs) {
    if (!pendingMetadata_.hasPosition()) {
        return;
    }
    Metadata record = std::exchange(pendingMetadata_, Metadata{});
    record.timestampMs = timestampMs;
    metadata_->pushReplacing(record);
}

void VideoPipeline::close() {
    packets_->close();
    if (!decoder_) {
        frames_->abort(); // nobody else would end the output
    }
}

void VideoPipeline::joinDecoder() {
    if (decoder_) {
        decoder_->join();
    }
}

void VideoPipeline::joinOutput() {
    if (output_) {
        output_->join();
    }
}

} // namespace ko_player
