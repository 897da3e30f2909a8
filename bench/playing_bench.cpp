// The whole worker, playing 1080p25 H.264 from a server on this machine, against ffmpeg on the same stream in
// the same run. Prints rows of the table that bench/compare puts together.

#include "Clips.h"
#include "Measures.h"
#include "Player.h"
#include "Table.h"
#include "support/ChildProcess.h"
#include "support/media/Clip.h"
#include "support/media/FlvStream.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
#include <libswscale/swscale.h>
}

#include <QCoreApplication>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <thread>

namespace {

using namespace mediaworker;
using bench::Clock;
using bench::fail;
using bench::fullHd;
using bench::kFps;
using bench::kHeight;
using bench::kWidth;
using bench::Milliseconds;
using bench::Player;
using bench::row;
using bench::text;
using test::Clip;
using test::ClipSpec;
using test::TimedBytes;

constexpr int kFrameMs = 1000 / kFps;

/// Processor time and memory of playing at the stream's own pace; the peer decodes and converts as fast as it
/// can.
void measurePlaying() {
    constexpr int kPictures = 600;
    const Clip clip = test::encode([] {
        ClipSpec spec = fullHd(kPictures);
        spec.bFrames = 2;
        return spec;
    }());
    test::HttpServer server;
    const auto pieces = test::makeFlv(clip);
    const auto bytes = test::toBytes(pieces);
    server.route("/live.flv", test::pacedHandler(pieces, {.burstMs = 2000}));
    server.route("/whole.flv", [&bytes](test::HttpResponse& response) { response.send(bytes); });

    std::vector<double> ours;
    std::vector<double> theirs;
    double peakMb = 0;
    for (int round = 0; round < 2; ++round) {
        const double before = bench::childCpuSeconds();
        std::size_t pictures = 0;
        {
            Player player(server.url("/live.flv"));
            player.waitForEnd();
            pictures = player.shown().size();
            peakMb = std::max(peakMb, player.peakMb());
        }
        const double between = bench::childCpuSeconds();
        test::ChildProcess ffmpeg(
            {.command = {"ffmpeg", "-v", "error", "-nostdin", "-threads", "1", "-i", server.url("/whole.flv"),
                         "-an", "-pix_fmt", "bgra", "-f", "rawvideo", "-y", "/dev/null"}});
        if (ffmpeg.wait() != 0) {
            fail("ffmpeg does not play the stream");
        }
        const double after = bench::childCpuSeconds();
        if (pictures < kPictures - 8) { // the last ones stay in the decoder
            fail("the worker showed only " + std::to_string(pictures) + " pictures");
        }
        ours.push_back((between - before) * 1000 / static_cast<double>(pictures));
        theirs.push_back((after - between) * 1000 / kPictures);
    }
    const double ratio = bench::median(ours) / bench::median(theirs);
    row("playing 1080p25 H.264: CPU seconds per 1,000 pictures, whole process, against `ffmpeg -threads 1`",
        text("%.2f × (%.2f s, %.2f s)", ratio, bench::median(ours), bench::median(theirs)), "≤ 1.10 ×",
        ratio <= 1.1);
    row("resident memory of that worker, peak", text("%.0f MB", peakMb).c_str(), "< 90 MB", peakMb < 90);
}

/// From the start of the process to the first picture of a live stream that begins with one group of
/// pictures: two seconds.
void measureStart() {
    const Clip clip = test::encode([] {
        ClipSpec spec = fullHd(5 * kFps);
        spec.zeroLatency = true;
        spec.audio = test::AudioCodec::Aac; // or ffmpeg would wait for the sound that it expects
        return spec;
    }());
    // What the server holds back for newcomers goes out in one piece, the rest in real time.
    constexpr std::int64_t kBufferedMs = 2000;
    std::vector<TimedBytes> pieces = test::makeFlv(clip);
    const auto live = std::find_if(pieces.begin(), pieces.end(),
                                   [](const TimedBytes& piece) { return piece.ms >= kBufferedMs; });
    const auto buffered = test::toBytes({pieces.begin(), live});
    pieces.erase(pieces.begin(), live);
    test::HttpServer server;
    server.route("/live.flv", [&](test::HttpResponse& response) {
        const auto begin = Clock::now();
        bool open = response.send(buffered);
        for (auto piece = pieces.begin(); open && piece != pieces.end(); ++piece) {
            open = response.sleepUntil(begin + std::chrono::milliseconds(piece->ms - kBufferedMs)) &&
                   response.send(piece->bytes);
        }
    });
    const std::size_t pictureBytes =
        static_cast<std::size_t>(clip.spec.widthPx) * static_cast<std::size_t>(clip.spec.heightPx) * 3 / 2;

    std::vector<double> ours;
    std::vector<double> theirs;
    for (int round = 0; round < 9; ++round) {
        {
            Player player(server.url("/live.flv"));
            player.waitForFrames(1);
            ours.push_back(Milliseconds(player.shown()[0].when - player.started()).count());
            player.end();
        }
        const auto begin = Clock::now();
        const std::string command =
            "exec ffmpeg -v fatal -nostdin -i " + server.url("/live.flv") + " -an -f rawvideo -";
        const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
        std::vector<char> picture(pictureBytes);
        if (!pipe || std::fread(picture.data(), 1, picture.size(), pipe.get()) != picture.size()) {
            fail("ffmpeg gives no picture");
        }
        theirs.push_back(Milliseconds(Clock::now() - begin).count());
    }
    const double ratio = bench::median(ours) / bench::median(theirs);
    row("start to first picture of a live stream, against `ffmpeg -i URL`",
        text("%.2f × (%.0f ms, %.0f ms)", ratio, bench::median(ours), bench::median(theirs)), "≤ 0.40 ×",
        ratio <= 0.4);
}

struct FreeCodec {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreeScaler {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

/// Milliseconds to decode and convert each picture of the clip, in this process and in the rhythm of the
/// stream: between two pictures caches and processor go cold, for the worker as for this.
std::vector<double> decodeAndConvert(const Clip& clip) {
    const std::unique_ptr<AVCodecContext, FreeCodec> context(avcodec_alloc_context3(nullptr));
    context->extradata =
        static_cast<std::uint8_t*>(av_mallocz(clip.videoConfig.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(context->extradata, clip.videoConfig.data(), clip.videoConfig.size());
    context->extradata_size = static_cast<int>(clip.videoConfig.size());
    if (avcodec_open2(context.get(), avcodec_find_decoder(AV_CODEC_ID_H264), nullptr) < 0) {
        fail("no decoder");
    }
    const std::unique_ptr<SwsContext, FreeScaler> scaler(
        sws_getContext(kWidth, kHeight, AV_PIX_FMT_YUV420P, kWidth, kHeight, AV_PIX_FMT_BGRA, SWS_BICUBIC,
                       nullptr, nullptr, nullptr));
    const std::unique_ptr<AVFrame, FreeFrame> frame(av_frame_alloc());
    const std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
    std::vector<std::uint8_t> picture(std::size_t{kWidth} * kHeight * 4);
    std::array<std::uint8_t*, 4> planes{picture.data()};
    const std::array<int, 4> lines{kWidth * 4};
    std::vector<double> result;
    auto due = Clock::now();
    for (const auto& coded : clip.video) {
        due += std::chrono::milliseconds(kFrameMs);
        std::this_thread::sleep_until(due);
        const auto begin = Clock::now();
        av_new_packet(packet.get(), static_cast<int>(coded.bytes.size()));
        std::memcpy(packet->data, coded.bytes.data(), coded.bytes.size());
        avcodec_send_packet(context.get(), packet.get());
        av_packet_unref(packet.get());
        if (avcodec_receive_frame(context.get(), frame.get()) >= 0) {
            sws_scale(scaler.get(), frame->data, frame->linesize, 0, kHeight, planes.data(), lines.data());
            result.push_back(Milliseconds(Clock::now() - begin).count());
        }
    }
    return result;
}

/// From the last byte of a picture sent to its frame message received, less the time to decode and convert
/// it. The pictures' stamps run a shade slower than the pictures come, so that the presentation clock never
/// adds a wait: what is left is the way through sockets, threads and queues.
void measureLatency() {
    constexpr int kPictures = 300;
    constexpr int kSkipped = 50; // start-up: decoder, first mapping
    const Clip clip = test::encode([] {
        ClipSpec spec = fullHd(kPictures);
        spec.zeroLatency = true;
        return spec;
    }());
    const std::vector<double> work = decodeAndConvert(clip);
    if (work.size() != kPictures) {
        fail("the clip does not decode one picture a packet");
    }
    Clip slow = clip;
    std::map<qint64, std::size_t> pictureOf;
    for (std::size_t i = 0; i < slow.video.size(); ++i) {
        slow.video[i].dtsMs = slow.video[i].ptsMs = static_cast<std::int64_t>(i) * (kFrameMs - 1);
        pictureOf[slow.video[i].dtsMs] = i;
    }
    const auto pieces = test::makeFlv(slow);
    std::vector<Clock::time_point> sent(kPictures);
    test::HttpServer server;
    server.route("/archive.flv", [&](test::HttpResponse& response) {
        std::size_t picture = 0;
        auto due = Clock::now();
        for (const TimedBytes& piece : pieces) {
            if (piece.kind == test::PieceKind::Video) {
                due += std::chrono::milliseconds(kFrameMs);
                if (!response.sleepUntil(due)) {
                    return;
                }
            }
            if (!response.send(piece.bytes)) {
                return;
            }
            if (piece.kind == test::PieceKind::Video) {
                sent[picture++] = Clock::now();
            }
        }
        response.waitForClientToLeave();
    });
    Player player(server.url("/archive.flv") + "?speed=2");
    player.waitForFrames(kPictures);
    std::vector<double> added;
    for (const auto& shown : player.shown()) {
        const std::size_t picture = pictureOf.at(shown.ptsMs);
        if (picture >= kSkipped) {
            added.push_back(Milliseconds(shown.when - sent[picture]).count() - work[picture]);
        }
    }
    player.end();
    const double middle = bench::median(added);
    const double worst = bench::quantile(added, 0.99);
    row("last byte of a picture sent to frame message received, less its decode + convert time: median",
        text("%+.2f ms (decode + convert %.2f ms)", middle, bench::median(work)).c_str(), "≤ +3 ms",
        middle <= 3);
    row("the same: 99th percentile", text("%+.2f ms", worst).c_str(), "≤ +10 ms", worst <= 10);
}

} // namespace

/// With an argument, only the measurement of that name.
int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    bench::run({{"latency", measureLatency}, {"playing", measurePlaying}, {"start", measureStart}}, argc,
               argv);
    return 0;
}
