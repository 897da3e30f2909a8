// From the bytes of an FLV stream to packets: FlvReader with FlvHandler, against libavformat's demuxer on the
// same bytes in memory. Both get the bytes in pieces of 64 KiB, as a socket would hand them on, and make one
// owned packet of each frame. Before anything is measured, both must have found the same packets.
//
// A pair of benchmarks is compared by its "bytes_per_second".

#include "base/Log.h"
#include "flv/FlvHandler.h"
#include "flv/FlvReader.h"
#include "support/FlvWriter.h"

#include <benchmark/benchmark.h>

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string_view>
#include <vector>

namespace {

using mediaworker::test::FlvWriter;
using mediaworker::test::VideoCodec;

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kPieceSize = std::size_t{64} * 1024;

/// The log is no part of what is measured.
class SilentLog final : public base::LogSink {
public:
    void write(std::string_view) override {}
};

struct Found {
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;

    friend bool operator==(const Found&, const Found&) = default;
};

Bytes nalUnit(std::size_t size, std::uint8_t header) {
    Bytes payload(size + 4, 0x5A);
    payload[0] = static_cast<std::uint8_t>(size >> 24U);
    payload[1] = static_cast<std::uint8_t>(size >> 16U);
    payload[2] = static_cast<std::uint8_t>(size >> 8U);
    payload[3] = static_cast<std::uint8_t>(size);
    payload[4] = header;
    return payload;
}

void begin(FlvWriter& writer) {
    writer.header().metadata(0, {{"videocodecid", 7},
                                 {"width", 1920},
                                 {"height", 1080},
                                 {"audiocodecid", 175},
                                 {"audiosamplerate", 44100},
                                 {"audiosamplesize", 16},
                                 {"audiochannels", 2}});
    // Parameter sets of a 1080p stream.
    const Bytes config{1,    0x64, 0,    0x28, 0xFF, 0xE1, 0,    0x19, 0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9,
                       0x40, 0x78, 0x02, 0x27, 0xE5, 0xC0, 0x44, 0x00, 0x00, 0x03, 0x00, 0x04, 0x00, 0x00,
                       0x03, 0x00, 0xC8, 0x3C, 0x60, 1,    0,    6,    0x68, 0xEB, 0xE3, 0xCB, 0x22, 0xC0};
    writer.video(0, VideoCodec::Avc, true, FlvWriter::kSequenceHeader, config);
    writer.aac(0, FlvWriter::kSequenceHeader, Bytes{0x12, 0x10});
}

/// A stream of mostly tiny tags: voice and still pictures.
Bytes manySmallTags() {
    FlvWriter writer;
    begin(writer);
    for (std::uint32_t i = 0; i < 20'000; ++i) {
        writer.video(i * 10, VideoCodec::Avc, i % 100 == 0, FlvWriter::kFrames,
                     nalUnit(60 + i % 90, i % 100 == 0 ? 0x65 : 0x41));
        writer.aac(i * 10 + 5, FlvWriter::kFrames, Bytes(20 + i % 40, 0x21));
    }
    return writer.take();
}

/// 40 seconds of 1080p25 at 8 Mb/s with one key frame a second of eight times the size, and 128 kb/s AAC.
Bytes fullHd() {
    FlvWriter writer;
    begin(writer);
    constexpr std::size_t kBytesPerSecond = 1'000'000;
    constexpr std::size_t kInterFrame = kBytesPerSecond / (24 + 8);
    std::uint32_t audioMs = 0;
    for (std::uint32_t i = 0; i < 1000; ++i) {
        const bool key = i % 25 == 0;
        writer.video(i * 40, VideoCodec::Avc, key, FlvWriter::kFrames,
                     nalUnit(key ? 8 * kInterFrame : kInterFrame, key ? 0x65 : 0x41));
        for (; audioMs <= i * 40; audioMs += 23) {
            writer.aac(audioMs, FlvWriter::kFrames, Bytes(370, 0x21));
        }
    }
    return writer.take();
}

Found readOurs(const Bytes& stream) {
    Found found;
    ko_player::FlvHandler handler;
    const auto count = [&found](const std::shared_ptr<ko_player::ff_wrap::Packet>& packet) {
        ++found.packets;
        found.bytes += static_cast<std::uint64_t>(packet->size());
    };
    handler.onVideoPacket = count;
    handler.onAudioPacket = count;
    ko_player::flv::FlvReader reader(&handler);
    for (std::size_t offset = 0; offset < stream.size(); offset += kPieceSize) {
        if (reader.consume(stream.data() + offset, std::min(kPieceSize, stream.size() - offset))) {
            break;
        }
    }
    return found;
}

struct Source {
    const Bytes& stream;
    std::size_t offset = 0;
};

int readPiece(void* opaque, std::uint8_t* buffer, int size) {
    auto& source = *static_cast<Source*>(opaque);
    const std::size_t count =
        std::min({static_cast<std::size_t>(size), kPieceSize, source.stream.size() - source.offset});
    if (count == 0) {
        return AVERROR_EOF;
    }
    std::memcpy(buffer, source.stream.data() + source.offset, count);
    source.offset += count;
    return static_cast<int>(count);
}

struct FreeIo {
    void operator()(AVIOContext* io) const {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
};
struct CloseInput {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

void fail(const char* what) {
    std::cerr << "flv_reading_bench: " << what << '\n';
    std::exit(1);
}

Found readLavf(const Bytes& stream) {
    Found found;
    Source source{stream};
    auto* ioBuffer = static_cast<std::uint8_t*>(av_malloc(kPieceSize));
    const std::unique_ptr<AVIOContext, FreeIo> io(
        avio_alloc_context(ioBuffer, static_cast<int>(kPieceSize), 0, &source, readPiece, nullptr, nullptr));
    AVFormatContext* raw = avformat_alloc_context();
    raw->pb = io.get();
    if (avformat_open_input(&raw, nullptr, av_find_input_format("flv"), nullptr) < 0) {
        fail("libavformat refuses the stream");
    }
    const std::unique_ptr<AVFormatContext, CloseInput> context(raw);
    while (true) {
        const std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
        if (av_read_frame(context.get(), packet.get()) < 0) {
            return found;
        }
        ++found.packets;
        found.bytes += static_cast<std::uint64_t>(packet->size);
    }
}

template <Found (*read)(const Bytes&)>
void run(benchmark::State& state, const Bytes& stream) {
    Found found;
    for (auto _ : state) {
        found = read(stream);
        benchmark::DoNotOptimize(found);
    }
    const std::int64_t rounds = state.iterations();
    state.SetBytesProcessed(rounds * static_cast<std::int64_t>(stream.size()));
    state.SetItemsProcessed(rounds * static_cast<std::int64_t>(found.packets));
    state.counters["packets"] = static_cast<double>(found.packets);
}

void addPair(const std::string& name, const Bytes& stream) {
    const Found ours = readOurs(stream);
    const Found lavf = readLavf(stream);
    if (ours.packets == 0 || ours != lavf) {
        std::cerr << name << ": ours " << ours.packets << " packets, " << ours.bytes << " bytes; libavformat "
                  << lavf.packets << " packets, " << lavf.bytes << " bytes\n";
        fail("the two readers disagree");
    }
    benchmark::RegisterBenchmark((name + "/ours").c_str(), run<readOurs>, stream);
    benchmark::RegisterBenchmark((name + "/libavformat").c_str(), run<readLavf>, stream);
}

} // namespace

int main(int argc, char** argv) {
    SilentLog silent;
    base::exchangeLogSink(&silent);
    av_log_set_level(AV_LOG_QUIET);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    addPair("small_tags", manySmallTags());
    addPair("1080p_8mbps", fullHd());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    base::exchangeLogSink(nullptr);
}
