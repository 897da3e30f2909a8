// A whole stream through FlvReader and FlvHandler, as the strict and as the standard reading has it. The
// first byte chooses how the rest is cut into pieces, and the stream is read a second time in one piece: both
// times it must end alike.

#include "base/Log.h"
#include "flv/FlvHandler.h"
#include "flv/FlvReader.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

/// What one reading gave; compared as a whole.
struct Reading {
    std::string log;
    std::vector<std::uint64_t> packets; ///< hashes
    bool ended = false;                 ///< by an error

    friend bool operator==(const Reading&, const Reading&) = default;
};

class LogText final : public base::LogSink {
public:
    explicit LogText(std::string& text) : text_(text), previous_(base::exchangeLogSink(this)) {}
    ~LogText() override { base::exchangeLogSink(previous_); }
    void write(std::string_view text) override { text_ += text; }

private:
    std::string& text_;
    base::LogSink* previous_;
};

void add(std::uint64_t& hash, std::uint64_t value) {
    hash = (hash ^ value) * 1'099'511'628'211U;
}

/// FFmpeg's own messages, of decoders that are tried on what the fuzzer makes up.
void silenceFfmpeg() {
    static const bool isDone = [] {
        av_log_set_level(AV_LOG_QUIET);
        return true;
    }();
    static_cast<void>(isDone);
}

/// Touches every byte that the packet claims to own.
std::uint64_t hashOf(const AVPacket& packet) {
    std::uint64_t hash = static_cast<std::uint64_t>(packet.flags);
    add(hash, static_cast<std::uint64_t>(packet.dts));
    add(hash, static_cast<std::uint64_t>(packet.pts));
    for (int i = 0; i < packet.size; ++i) {
        add(hash, packet.data[i]);
    }
    std::size_t sideSize = 0;
    const std::uint8_t* side = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &sideSize);
    for (std::size_t i = 0; i < sideSize; ++i) {
        add(hash, side[i]);
    }
    return hash;
}

Reading read(ko_player::FlvReading dialect, const std::uint8_t* data, std::size_t size,
             std::size_t pieceSize) {
    Reading reading;
    const LogText log(reading.log);
    ko_player::FlvHandler handler(dialect);
    const auto keep = [&](const std::shared_ptr<ko_player::ff_wrap::Packet>& packet) {
        reading.packets.push_back(hashOf(*packet->get()));
    };
    const auto check = [](const AVCodecParameters* params) {
        return params->extradata_size == 0 || params->extradata[params->extradata_size - 1] != 0;
    };
    handler.onVideoPacket = keep;
    handler.onAudioPacket = keep;
    handler.onVideoParams = check;
    handler.onAudioParams = check;
    ko_player::flv::FlvReader reader(&handler, dialect);
    for (std::size_t offset = 0; offset < size && !reading.ended;) {
        // A copy of the piece's exact size, so that a read behind its end is seen.
        const std::size_t count = std::min(pieceSize, size - offset);
        const std::vector<std::uint8_t> piece(data + offset, data + offset + count);
        reading.ended = reader.consume(piece.data(), piece.size()).has_value();
        offset += count;
    }
    return reading;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    silenceFfmpeg();
    if (size == 0) {
        return 0;
    }
    const std::size_t pieceSize = data[0] < 128 ? 1U + data[0] : std::size_t{1} << (data[0] % 16U);
    using ko_player::FlvReading;
    for (const FlvReading dialect : {FlvReading::Strict, FlvReading::Standard}) {
        if (read(dialect, data + 1, size - 1, pieceSize) != read(dialect, data + 1, size - 1, size)) {
            std::abort();
        }
    }
    return 0;
}
