#include "DecodeClip.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mem.h>
#include <libswscale/swscale.h>
}

#include <cstring>
#include <memory>
#include <stdexcept>

namespace mediaworker::test {
namespace {

struct Free {
    void operator()(AVCodecContext* context) const noexcept { avcodec_free_context(&context); }
    void operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const noexcept { av_frame_free(&frame); }
    void operator()(SwsContext* context) const noexcept { sws_freeContext(context); }
};

DecodedPicture convert(const AVFrame& frame, int widthPx, int heightPx) {
    DecodedPicture picture;
    picture.widthPx = widthPx > 0 ? widthPx : frame.width;
    picture.heightPx = heightPx > 0 ? heightPx : frame.height;
    picture.stampMs = frame.pkt_dts;
    // The scaler may write a little past the last pixel when the width is not a multiple of 16.
    constexpr std::size_t kPaddingBytes = 64;
    picture.bgra.resize(static_cast<std::size_t>(picture.widthPx) *
                            static_cast<std::size_t>(picture.heightPx) * 4 +
                        kPaddingBytes);
    const std::unique_ptr<SwsContext, Free> scaler(
        sws_getContext(frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), picture.widthPx,
                       picture.heightPx, AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr));
    std::uint8_t* planes[4] = {picture.bgra.data(), nullptr, nullptr, nullptr};
    const int strides[4] = {picture.widthPx * 4, 0, 0, 0};
    if (sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides) < 0) {
        throw std::runtime_error("sws_scale failed");
    }
    return picture;
}

} // namespace

std::vector<DecodedPicture> decode(const Clip& clip, int widthPx, int heightPx) {
    const AVCodec* codec =
        avcodec_find_decoder(clip.spec.codec == VideoCodec::Hevc ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264);
    const std::unique_ptr<AVCodecContext, Free> context(avcodec_alloc_context3(codec));
    context->extradata =
        static_cast<std::uint8_t*>(av_mallocz(clip.videoConfig.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(context->extradata, clip.videoConfig.data(), clip.videoConfig.size());
    context->extradata_size = static_cast<int>(clip.videoConfig.size());
    if (avcodec_open2(context.get(), codec, nullptr) < 0) {
        throw std::runtime_error("avcodec_open2 failed");
    }
    const std::unique_ptr<AVPacket, Free> packet(av_packet_alloc());
    const std::unique_ptr<AVFrame, Free> frame(av_frame_alloc());
    std::vector<DecodedPicture> result;
    for (const ClipPacket& source : clip.video) {
        av_new_packet(packet.get(), static_cast<int>(source.bytes.size()));
        std::memcpy(packet->data, source.bytes.data(), source.bytes.size());
        packet->dts = source.dtsMs;
        if (avcodec_send_packet(context.get(), packet.get()) < 0) {
            throw std::runtime_error("avcodec_send_packet failed");
        }
        av_packet_unref(packet.get());
        while (avcodec_receive_frame(context.get(), frame.get()) >= 0) {
            result.push_back(convert(*frame, widthPx, heightPx));
        }
    }
    return result;
}

} // namespace mediaworker::test
