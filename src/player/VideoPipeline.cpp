#include "player/VideoPipeline.h"

#include "base/Log.h"
#include "base/Saturating.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/avutil.h>
#include <libavutil/rational.h>
}

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace ko_player {
namespace {

/// The memory is enough for twenty minutes at 25 pictures a second. Only packets with less than 256 bytes
/// on the average reach it before they reach the other bound.
constexpr details::ChannelRoom kPacketRoom{.payloadBytes = 0x800000, .memoryBytes = 0x1800000};
/// Few, because each is a whole picture: at 1080p about 3 MB.
constexpr std::size_t kFrameCapacity = 4;
constexpr std::size_t kMetadataCapacity = 150;
constexpr AVRational kMilliseconds{1, 1000};

} // namespace

VideoPipeline::VideoPipeline(std::shared_ptr<VideoHandler> handler, std::shared_ptr<VideoState> state,
                             base::Clock& clock, DecodeRules rules)
    : rules_(rules), state_(std::move(state)), metadata_(std::make_shared<MetadataQueue>(kMetadataCapacity)),
      packets_(std::make_shared<PacketChannel>(kPacketRoom)),
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
                                               packets_, frames_, "video decoder", rules_);
}

VideoPipeline::PushResult VideoPipeline::push(const std::shared_ptr<ff_wrap::Packet>& packet,
                                              details::Blocking blocking) {
    if (!decoder_) {
        return PushResult::NotOpened;
    }
    makeMonotonic(*packet);
    queueMetadata(publishTime(*packet));
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
    if (!lastDtsMs_ && !rules_.presentationTimes) {
        lastDtsMs_ = 0;
    }
    const std::int64_t dts =
        lastDtsMs_ && packet->dts < *lastDtsMs_ ? base::addSaturated(*lastDtsMs_, 1) : packet->dts;
    if (dts != packet->dts) {
        base::logAt("ko_player::VideoPipeline::push", "video packet time is fixed from: ", packet->dts,
                    ", to: ", dts);
        if (rules_.presentationTimes && packet->pts != AV_NOPTS_VALUE && packet->dts != AV_NOPTS_VALUE) {
            packet->pts = base::addSaturated(packet->pts, base::subtractSaturated(dts, packet->dts));
        }
        packet->dts = dts;
    }
    lastDtsMs_ = dts;
}

std::int64_t VideoPipeline::publishTime(const ff_wrap::Packet& packet) {
    if (!rules_.presentationTimes) {
        state_->newestPushedMs = packet->dts;
        return packet->dts;
    }
    const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    // With pictures out of order the newest is not the last one.
    state_->newestPushedMs = isFirst_ ? time : std::max(state_->newestPushedMs.load(), time);
    if (std::exchange(isFirst_, false)) {
        state_->lastShownMs = time; // wherever the stream's time begins, nothing has been shown of it
    }
    return time;
}

void VideoPipeline::queueMetadata(std::int64_t timestampMs) {
    if (!pendingMetadata_.hasPosition()) {
        return;
    }
    Metadata record = std::exchange(pendingMetadata_, Metadata{});
    record.timestampMs = timestampMs;
    metadata_->pushReplacing(record);
}

void VideoPipeline::drain() {
    if (decoder_ && rules_.drains) {
        packets_->push(std::make_shared<ff_wrap::Packet>(), details::Blocking::Yes);
    }
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
