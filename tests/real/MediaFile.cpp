#include "MediaFile.h"

extern "C" {
#include <libavcodec/codec_desc.h>
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace mediaworker::test {
namespace {

struct CloseInput {
    void operator()(AVFormatContext* context) const noexcept { avformat_close_input(&context); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }
};

MediaTrack describe(const AVCodecParameters& parameters) {
    MediaTrack track;
    track.codec = avcodec_get_name(parameters.codec_id);
    track.configuration.assign(parameters.extradata, parameters.extradata + parameters.extradata_size);
    track.widthPx = parameters.width;
    track.heightPx = parameters.height;
    track.sampleRate = parameters.sample_rate;
    track.channels = parameters.ch_layout.nb_channels;
    track.profile = std::max(parameters.profile, 0);
    return track;
}

} // namespace

MediaFile readMediaFile(const std::filesystem::path& file) {
    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, file.string().c_str(), nullptr, nullptr) < 0) {
        throw std::runtime_error("readMediaFile: cannot open " + file.string());
    }
    const std::unique_ptr<AVFormatContext, CloseInput> input(opened);
    if (avformat_find_stream_info(input.get(), nullptr) < 0) {
        throw std::runtime_error("readMediaFile: cannot read " + file.string());
    }
    MediaFile result;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVCodecParameters& parameters = *input->streams[i]->codecpar;
        (parameters.codec_type == AVMEDIA_TYPE_VIDEO ? result.video : result.audio) = describe(parameters);
    }
    const std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const AVStream& stream = *input->streams[packet->stream_index];
        const auto milliseconds = [&](std::int64_t time) {
            return av_rescale_q(time, stream.time_base, {1, 1000});
        };
        result.packets.push_back({stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO,
                                  (packet->flags & AV_PKT_FLAG_KEY) != 0,
                                  milliseconds(packet->dts),
                                  milliseconds(packet->pts),
                                  {packet->data, packet->data + packet->size}});
        av_packet_unref(packet.get());
    }
    std::stable_sort(result.packets.begin(), result.packets.end(),
                     [](const MediaPacket& a, const MediaPacket& b) { return a.dtsMs < b.dtsMs; });
    return result;
}

} // namespace mediaworker::test
