#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavutil/rational.h>
}

namespace mediaworker::test {

struct Mp4Packet {
    std::int64_t dts = 0; ///< in the stream's time base, from the first packet of the stream on
    std::int64_t pts = 0;
    std::vector<std::uint8_t> bytes;
    bool isKey = false;
};

struct Mp4Stream {
    AVCodecID codec = AV_CODEC_ID_NONE;
    int widthPx = 0;
    int heightPx = 0;
    int sampleRate = 0;
    AVRational timeBase{1, 1};
    std::vector<std::uint8_t> extradata;
    std::vector<Mp4Packet> packets;

    [[nodiscard]] std::vector<std::int64_t> stamps() const;
};

/// The streams of an MP4 file as libavformat reads them, all packets included: the edit list that the writer
/// makes would hide the last packet, whose duration nobody knows. Throws std::runtime_error when it cannot be
/// read.
[[nodiscard]] std::vector<Mp4Stream> readMp4(const std::filesystem::path& file);

/// What the ffprobe program counts: "codec,width,height,packets" or "codec,packets", one line per stream.
[[nodiscard]] std::string probe(const std::filesystem::path& file);

/// When a packet is decoded and shown, milliseconds.
struct PacketTime {
    double dtsMs = 0;
    double ptsMs = 0;
};

/// The times of a track's packets as a player sees them, edit lists included, by the ffprobe program; `track`
/// is its word for one, "v" or "a".
[[nodiscard]] std::vector<PacketTime> packetTimes(const std::filesystem::path& file,
                                                  const std::string& track);

/// What the ffmpeg program complains about when it decodes the whole file.
[[nodiscard]] std::string complaints(const std::filesystem::path& file);

/// The same, where pictures follow each other faster than at the frame rate: by default ffmpeg would force
/// them onto that, and then complain about what it did.
[[nodiscard]] std::string complaintsAtAnyRate(const std::filesystem::path& file);

} // namespace mediaworker::test
