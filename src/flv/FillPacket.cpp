#include "flv/FillPacket.h"

#include "ffmpeg/Avcodec.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/avutil.h>
}

#include <climits>
#include <cstring>
#include <stdexcept>

namespace ko_player {

void FillPacket(ff_wrap::Packet& packet, const std::uint8_t* data, std::uint32_t size,
                std::int64_t timestampMs, std::vector<std::uint8_t>& sideData, int keyFlag) {
    if (size > static_cast<std::uint32_t>(INT_MAX) ||
        ff_wrap::avcodec().av_new_packet(packet.get(), static_cast<int>(size)) < 0) {
        throw std::runtime_error("FillPacket failed to alloc");
    }
    if (size > 0) {
        std::memcpy(packet->data, data, size);
    }
    packet->dts = timestampMs;
    packet->pts = AV_NOPTS_VALUE;
    packet->flags |= keyFlag;
    if (!sideData.empty()) {
        std::uint8_t* side = ff_wrap::avcodec().av_packet_new_side_data(
            packet.get(), AV_PKT_DATA_NEW_EXTRADATA, sideData.size());
        if (side == nullptr) {
            throw std::runtime_error("FillPacket failed to alloc side");
        }
        std::memcpy(side, sideData.data(), sideData.size());
        sideData.clear();
    }
}

} // namespace ko_player
