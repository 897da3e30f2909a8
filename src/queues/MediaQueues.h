#pragma once

#include "ffmpeg/Frame.h"
#include "ffmpeg/Packet.h"
#include "queues/Channel.h"
#include "queues/Queue.h"

#include <cstddef>
#include <memory>

namespace ko_player {

/// Compressed packets on their way to a decoder.
using PacketChannel = details::Channel<std::shared_ptr<ff_wrap::Packet>>;
/// Decoded frames on their way to an output.
using FrameQueue = details::Queue<std::shared_ptr<ff_wrap::Frame>>;

/// For a queue of frames that can be of any size.
[[nodiscard]] inline FrameQueue::ByteBound bytesUpTo(std::size_t most) {
    return {.most = most,
            .bytesOf = [](const std::shared_ptr<ff_wrap::Frame>& frame) { return frame->heldBytes(); }};
}

} // namespace ko_player
