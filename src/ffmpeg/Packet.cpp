#include "ffmpeg/Packet.h"

#include "ffmpeg/Avcodec.h"

extern "C" {
#include <libavcodec/packet.h>
}

#include <new>
#include <stdexcept>

namespace ko_player::ff_wrap {

void Packet::Free::operator()(AVPacket* packet) const noexcept {
    avcodec().av_packet_free(&packet);
}

Packet::Packet() : packet_(avcodec().av_packet_alloc()) {
    if (!packet_) {
        throw std::bad_alloc();
    }
}

int Packet::size() const {
    if (packet_->size < 0) {
        throw std::runtime_error("ff_wrap::Packet size neg");
    }
    return packet_->size;
}

std::size_t Packet::heldBytes() const {
    std::size_t bytes = kOverheadBytes + static_cast<std::size_t>(size());
    for (int i = 0; i < packet_->side_data_elems; ++i) {
        bytes += packet_->side_data[i].size;
    }
    return bytes;
}

} // namespace ko_player::ff_wrap
