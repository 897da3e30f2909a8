#include "Mp4File.h"

#include "support/ChildProcess.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
}

#include <memory>
#include <sstream>
#include <stdexcept>

namespace mediaworker::test {
namespace {

struct CloseInput {
    void operator()(AVFormatContext* context) const noexcept { avformat_close_input(&context); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }
};

std::unique_ptr<AVFormatContext, CloseInput> openInput(const std::filesystem::path& file) {
    AVDictionary* options = nullptr;
    av_dict_set(&options, "ignore_editlist", "1", 0);
    AVFormatContext* context = nullptr;
    const int result = avformat_open_input(&context, file.string().c_str(), nullptr, &options);
    av_dict_free(&options);
    if (result < 0) {
        throw std::runtime_error("readMp4: cannot open " + file.string());
    }
    context->flags |= AVFMT_FLAG_NOPARSE; // packets as they were written
    return std::unique_ptr<AVFormatContext, CloseInput>(context);
}

} // namespace

std::vector<std::int64_t> Mp4Stream::stamps() const {
    std::vector<std::int64_t> result;
    for (const Mp4Packet& packet : packets) {
        result.push_back(packet.dts);
    }
    return result;
}

std::vector<Mp4Stream> readMp4(const std::filesystem::path& file) {
    const auto input = openInput(file);
    std::vector<Mp4Stream> streams;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream* stream = input->streams[i];
        const AVCodecParameters* parameters = stream->codecpar;
        streams.push_back({parameters->codec_id,
                           parameters->width,
                           parameters->height,
                           parameters->sample_rate,
                           stream->time_base,
                           {parameters->extradata, parameters->extradata + parameters->extradata_size},
                           {}});
    }
    const std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        Mp4Stream& stream = streams.at(static_cast<std::size_t>(packet->stream_index));
        stream.packets.push_back({packet->dts,
                                  packet->pts,
                                  {packet->data, packet->data + packet->size},
                                  (packet->flags & AV_PKT_FLAG_KEY) != 0});
        av_packet_unref(packet.get());
    }
    return streams;
}

std::string probe(const std::filesystem::path& file) {
    return runCommand({"ffprobe", "-v", "error", "-ignore_editlist", "1", "-count_packets", "-show_entries",
                       "stream=codec_name,width,height,nb_read_packets", "-of", "csv=p=0", file.string()});
}

std::vector<PacketTime> packetTimes(const std::filesystem::path& file, const std::string& track) {
    constexpr double kMsPerSecond = 1000;
    std::istringstream lines(runCommand({"ffprobe", "-v", "error", "-select_streams", track, "-show_entries",
                                         "packet=pts_time,dts_time", "-of", "csv=p=0", file.string()}));
    std::vector<PacketTime> times;
    for (std::string line; std::getline(lines, line);) {
        const auto comma = line.find(',');
        if (comma != std::string::npos) { // "pts,dts", and a comma more where there is side data
            times.push_back(
                {std::stod(line.substr(comma + 1)) * kMsPerSecond, std::stod(line) * kMsPerSecond});
        }
    }
    return times;
}

std::string complaints(const std::filesystem::path& file) {
    return runCommand({"sh", "-c", "ffmpeg -nostdin -v error -i \"$1\" -f null - 2>&1 || echo failed", "sh",
                       file.string()});
}

std::string complaintsAtAnyRate(const std::filesystem::path& file) {
    return runCommand({"sh", "-c",
                       "ffmpeg -nostdin -v error -i \"$1\" -fps_mode passthrough -enc_time_base -1 -f null - "
                       "2>&1 || echo failed",
                       "sh", file.string()});
}

} // namespace mediaworker::test
