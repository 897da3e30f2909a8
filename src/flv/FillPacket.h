#pragma once

#include "ffmpeg/Packet.h"

#include <cstdint>
#include <vector>

namespace ko_player {

/// Gives an empty packet a copy of the payload, with the time stamp (milliseconds) as its decode time and no
/// presentation time. Side data, if there is any, is attached as new extradata and then emptied. `keyFlag` is
/// 0 or AV_PKT_FLAG_KEY. Throws std::runtime_error "FillPacket failed to alloc" or "FillPacket failed to
/// alloc side".
void FillPacket(ff_wrap::Packet& packet, const std::uint8_t* data, std::uint32_t size,
                std::int64_t timestampMs, std::vector<std::uint8_t>& sideData, int keyFlag);

} // namespace ko_player
