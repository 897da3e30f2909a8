#pragma once

#include "ffmpeg/Frame.h"
#include "ffmpeg/Packet.h"
#include "queues/Channel.h"
#include "queues/Queue.h"

#include <memory>

namespace ko_player {

/// Compressed packets on their way to a decoder.
using PacketChannel = details::Channel<std::shared_ptr<ff_wrap::Packet>>;
/// Decoded frames on their way to an output.
using FrameQueue = details::Queue<std::shared_ptr<ff_wrap::Frame>>;

} // namespace ko_player
