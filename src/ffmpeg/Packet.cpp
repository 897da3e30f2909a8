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

} // namespace ko_player::ff_wrap
