#pragma once

#include "ffmpeg/CodecParameters.h"
#include "ffmpeg/Packet.h"

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavcodec/packet.h>
#include <libavutil/channel_layout.h>
#include <libavutil/pixfmt.h>
}

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>

/// Packets of codecs that need no encoder: uncompressed pictures and G.711 sound.
namespace mediaworker::test {

inline constexpr int kRawWidth = 16;
inline constexpr int kRawHeight = 16;
inline constexpr int kRawPictureBytes = kRawWidth * kRawHeight * 3 / 2;

inline std::shared_ptr<ko_player::ff_wrap::Packet> makePacket(std::int64_t dts, int size,
                                                              std::uint8_t fill = 0) {
    auto packet = std::make_shared<ko_player::ff_wrap::Packet>();
    if (av_new_packet(packet->get(), size) < 0) {
        throw std::runtime_error("no packet");
    }
    std::memset((*packet)->data, fill, static_cast<std::size_t>(size));
    (*packet)->dts = dts;
    return packet;
}

inline std::shared_ptr<ko_player::ff_wrap::Packet> makeRawPicture(std::int64_t dts) {
    return makePacket(dts, kRawPictureBytes, 128);
}

inline ko_player::ff_wrap::CodecParametersPtr rawVideoParameters() {
    auto parameters = ko_player::ff_wrap::makeCodecParameters();
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters->codec_id = AV_CODEC_ID_RAWVIDEO;
    parameters->format = AV_PIX_FMT_YUV420P;
    parameters->width = kRawWidth;
    parameters->height = kRawHeight;
    return parameters;
}

inline ko_player::ff_wrap::CodecParametersPtr alawParameters(int rate = 8000, int channels = 1) {
    auto parameters = ko_player::ff_wrap::makeCodecParameters();
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->codec_id = AV_CODEC_ID_PCM_ALAW;
    parameters->sample_rate = rate;
    av_channel_layout_default(&parameters->ch_layout, channels);
    return parameters;
}

} // namespace mediaworker::test
