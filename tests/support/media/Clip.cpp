#include "support/media/Clip.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavcodec/version.h>
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <memory>
#include <numeric>
#include <stdexcept>

namespace mediaworker::test {
namespace {

struct CloseInput {
    void operator()(AVFormatContext* context) const noexcept { avformat_close_input(&context); }
};
using Input = std::unique_ptr<AVFormatContext, CloseInput>;

struct FreePacket {
    void operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }
};
using PacketPointer = std::unique_ptr<AVPacket, FreePacket>;

Input openInput(const std::filesystem::path& file) {
    AVDictionary* options = nullptr;
    // Edit lists would move the first decode time stamp below 0 when there are B-frames.
    av_dict_set(&options, "ignore_editlist", "1", 0);
    AVFormatContext* context = nullptr;
    const int result = avformat_open_input(&context, file.string().c_str(), nullptr, &options);
    av_dict_free(&options);
    if (result < 0) {
        throw std::runtime_error("readClip: cannot open " + file.string());
    }
    return Input(context);
}

std::vector<std::uint8_t> extradata(const AVStream* stream) {
    const AVCodecParameters* parameters = stream->codecpar;
    return {parameters->extradata, parameters->extradata + parameters->extradata_size};
}

/// The container holds G.711 in pieces of any size; a camera sends even ones.
std::vector<ClipPacket> cutIntoBlocks(const std::vector<ClipPacket>& pieces, const ClipSpec& spec) {
    constexpr int kBlockMs = 40;
    std::vector<std::uint8_t> all;
    for (const ClipPacket& piece : pieces) {
        all.insert(all.end(), piece.bytes.begin(), piece.bytes.end());
    }
    const auto blockBytes = static_cast<std::size_t>(spec.sampleRate * spec.channels * kBlockMs / 1000);
    std::vector<ClipPacket> result;
    for (std::size_t offset = 0; offset < all.size(); offset += blockBytes) {
        const auto end = std::min(offset + blockBytes, all.size());
        ClipPacket block;
        block.bytes.assign(all.begin() + static_cast<std::ptrdiff_t>(offset),
                           all.begin() + static_cast<std::ptrdiff_t>(end));
        block.dtsMs = static_cast<std::int64_t>(result.size()) * kBlockMs;
        block.ptsMs = block.dtsMs;
        block.isKey = true;
        result.push_back(std::move(block));
    }
    return result;
}

} // namespace

Clip readClip(const std::filesystem::path& file, const ClipSpec& spec) {
    const Input input = openInput(file);
    Clip clip;
    clip.spec = spec;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream* stream = input->streams[i];
        if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
            clip.videoConfig = extradata(stream);
        } else if (spec.audio == AudioCodec::Aac || spec.audio == AudioCodec::Opus ||
                   spec.audio == AudioCodec::Flac) {
            clip.audioConfig = extradata(stream);
        }
    }
    const PacketPointer packet(av_packet_alloc());
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const AVStream* stream = input->streams[packet->stream_index];
        const AVRational milliseconds = {1, 1000};
        ClipPacket copy;
        copy.bytes.assign(packet->data, packet->data + packet->size);
        copy.dtsMs = av_rescale_q(packet->dts, stream->time_base, milliseconds);
        copy.ptsMs = av_rescale_q(packet->pts, stream->time_base, milliseconds);
        copy.isKey = (packet->flags & AV_PKT_FLAG_KEY) != 0;
        auto& packets = stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO ? clip.video : clip.audio;
        packets.push_back(std::move(copy));
        av_packet_unref(packet.get());
    }
    if (spec.audio == AudioCodec::ALaw || spec.audio == AudioCodec::MuLaw) {
        clip.audio = cutIntoBlocks(clip.audio, spec);
    }
    const bool hasConfig = spec.codec != VideoCodec::Vp8 && spec.codec != VideoCodec::Vp9;
    if ((hasConfig && clip.videoConfig.empty()) ||
        clip.video.size() != static_cast<std::size_t>(spec.frames) ||
        clip.audio.empty() != (spec.audio == AudioCodec::None)) {
        throw std::runtime_error("readClip: " + file.string() + " does not hold what was asked for");
    }
    return clip;
}

std::vector<ShownPicture> shownPictures(const Clip& clip) {
    std::vector<std::size_t> order(clip.video.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return clip.video[a].ptsMs < clip.video[b].ptsMs; });
    // A picture leaves the decoder with the packet that comes `depth` after its own place in the order shown.
    std::size_t depth = 0;
    for (std::size_t shown = 0; shown < order.size(); ++shown) {
        depth = std::max(depth, order[shown] > shown ? order[shown] - shown : 0);
    }
    // From FFmpeg 7.1 on, the HEVC decoder lets all pictures out that it has when a key frame comes.
    constexpr bool kKeyFrameFlushes = LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 19, 100);
    const bool keyFrameFlushes = kKeyFrameFlushes && clip.spec.codec == VideoCodec::Hevc;
    std::vector<ShownPicture> result;
    for (std::size_t shown = 0; shown + depth < order.size(); ++shown) {
        std::size_t pushedBy = shown + depth;
        for (std::size_t i = shown + 1; keyFrameFlushes && i < pushedBy; ++i) {
            if (clip.video[i].isKey) {
                pushedBy = i;
            }
        }
        result.push_back({clip.spec.firstFrameNumber + static_cast<int>(shown), clip.video[pushedBy].dtsMs});
    }
    return result;
}

} // namespace mediaworker::test
