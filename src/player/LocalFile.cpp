#include "player/LocalFile.h"

#include "base/Log.h"
#include "base/Saturating.h"
#include "ffmpeg/Avcodec.h"
#include "ffmpeg/Avformat.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/avutil.h>
#include <libavutil/error.h>
}

#include <algorithm>
#include <array>
#include <new>
#include <span>

namespace ko_player {
namespace {

constexpr int kNoStream = -1;

/// FFmpeg's text for a file that cannot be opened, with the shorter buffer that this line has always had.
std::string openErrorText(int code) {
    std::array<char, 64> text{};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

bool isVideo(const AVStream& stream) {
    return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
}

/// A picture that lies beside the sound or the film: the cover of a record, a thumbnail.
bool isCover(const AVStream& stream) {
    return isVideo(stream) && (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
}

/// Whether the stream is what the file has to show. A cover is where there is nothing else, the first of
/// several.
bool isShown(const AVFormatContext& file, const AVStream& stream) {
    const std::span streams(file.streams, file.nb_streams);
    if (isCover(stream)) {
        return *std::ranges::find_if(streams, [](const AVStream* other) { return isVideo(*other); }) ==
                   &stream &&
               std::ranges::all_of(streams,
                                   [](const AVStream* other) { return !isVideo(*other) || isCover(*other); });
    }
    return isVideo(stream);
}

} // namespace

std::int64_t toMilliseconds(std::int64_t timestamp, AVRational timeBase) {
    const double seconds = static_cast<double>(timeBase.num) / static_cast<double>(timeBase.den);
    return base::toInt64Saturated(seconds * (static_cast<double>(timestamp) * 1000.0));
}

void rescaleToMilliseconds(AVPacket& packet, AVRational timeBase, const DecodeRules& rules) {
    if (timeBase.num == 1 && timeBase.den == 1000) {
        return;
    }
    const bool hasDecodeTime = packet.dts != AV_NOPTS_VALUE;
    if (hasDecodeTime) {
        packet.dts = toMilliseconds(packet.dts, timeBase);
    }
    if (packet.pts != AV_NOPTS_VALUE && (rules.presentationTimes || !hasDecodeTime)) {
        packet.pts = toMilliseconds(packet.pts, timeBase);
    }
}

void Player::LocalFile::CloseInput::operator()(AVFormatContext* input) const noexcept {
    ff_wrap::avformat().avformat_close_input(&input);
}

void Player::playFile(const char* path) {
    const ff_wrap::Avformat& lib = ff_wrap::avformat();
    AVFormatContext* opened = nullptr;
    const int openResult = lib.avformat_open_input(&opened, path, nullptr, nullptr);
    if (openResult != 0) {
        base::logLine("couldn't open file ", path, " : ", openErrorText(openResult));
        return;
    }
    localFile_ = std::make_unique<LocalFile>();
    localFile_->context.reset(opened);
    if (lib.avformat_find_stream_info(opened, nullptr) < 0) {
        base::logLine("couldn't find stream information");
        return;
    }
    lib.av_dump_format(opened, 0, path, 0);

    int videoStream = kNoStream;
    for (unsigned i = 0; i < opened->nb_streams; ++i) {
        const AVCodecParameters* parameters = opened->streams[i]->codecpar;
        const std::lock_guard lock(mutex_);
        if (isShown(*opened, *opened->streams[i])) {
            startVideo(parameters);
            videoStream = static_cast<int>(i);
        } else if (parameters->codec_type == AVMEDIA_TYPE_AUDIO) {
            startAudio(parameters);
        } else {
            base::logLine("format ctx stream: ", static_cast<int>(parameters->codec_type));
        }
    }

    const DecodeRules rules = decodeRulesOf(options_.flv);
    for (ff_wrap::Packet packet; lib.av_read_frame(opened, packet.get()) >= 0;
         ff_wrap::avcodec().av_packet_unref(packet.get())) {
        // The audio pipeline is opened but gets nothing here: a local file shows its pictures only.
        if (packet->stream_index != videoStream) {
            continue;
        }
        rescaleToMilliseconds(*packet.get(), opened->streams[videoStream]->time_base, rules);
        auto queued = std::make_shared<ff_wrap::Packet>();
        if (ff_wrap::avcodec().av_packet_ref(queued->get(), packet.get()) < 0) {
            throw std::bad_alloc();
        }
        const std::lock_guard lock(mutex_);
        pushVideo(queued);
    }
    const std::lock_guard lock(mutex_);
    video_.drain();
}

} // namespace ko_player
