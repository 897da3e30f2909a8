#pragma once

#include "base/Clock.h"
#include "output/AudioOutput.h"
#include "player/QueuedDecoder.h"
#include "queues/PlayerState.h"
#include "records/Handlers.h"

#include <cstdint>
#include <memory>

struct AVCodecParameters;

namespace ko_player {

/// Packet channel, queued decoder and audio output, joined. Used by the thread that feeds the player; the
/// decoder and output threads run inside.
class AudioPipeline {
public:
    AudioPipeline(std::shared_ptr<AudioHandler> handler, std::shared_ptr<PlayerState> state,
                  base::Clock& clock, DecodeRules rules = {});

    /// Starts the decoder and the output. False when the handler refuses the sound; the pipeline then stays
    /// closed. Throws std::logic_error "AudioPipeline::open second call" or "AudioPipeline: bad out
    /// parameters", and what ff_wrap::Decoder throws.
    bool open(const AVCodecParameters* parameters);
    [[nodiscard]] bool isOpened() const { return decoder_ != nullptr; }

    /// Counts a packet that arrived, pushed or not, and logs every 1000th.
    void countPacket();
    details::PushResult push(const std::shared_ptr<ff_wrap::Packet>& packet, details::Blocking blocking);

    /// No more input: what is queued plays out, then both threads end.
    void close();
    void joinDecoder();
    void joinOutput();

private:
    [[nodiscard]] bool getOutParams(const AudioParams& in, AudioParams& out);

    const DecodeRules rules_;
    const std::shared_ptr<PlayerState> state_;
    const std::shared_ptr<PacketChannel> packets_;
    const std::shared_ptr<FrameQueue> frames_;
    const std::shared_ptr<AudioHandler> handler_;
    base::Clock& clock_;
    std::unique_ptr<AudioOutput> output_;    ///< null until open()
    std::unique_ptr<QueuedDecoder> decoder_; ///< null until open(); ends before the output does
    std::uint64_t packetCount_ = 0;
};

} // namespace ko_player
