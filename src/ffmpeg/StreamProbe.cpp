#include "ffmpeg/StreamProbe.h"

#include "ffmpeg/Avcodec.h"
#include "ffmpeg/Decoder.h"
#include "ffmpeg/FfmpegError.h"
#include "ffmpeg/Frame.h"

extern "C" {
#include <libavutil/frame.h>
}

#include <exception>
#include <optional>

namespace ko_player::ff_wrap {
namespace {

constexpr AVRational kMilliseconds{1, 1000};

/// Its frames have no size of their own. FFmpeg numbers these codecs in one range.
bool isPcm(AVCodecID codec) {
    return codec >= AV_CODEC_ID_FIRST_AUDIO && codec < AV_CODEC_ID_ADPCM_IMA_QT;
}

/// Decodes one packet to its end: nothing that the decoder would hold back is missing.
int decodeAlone(AVCodecContext* context, const AVPacket& packet, Frame& frame) {
    context->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL; // the whole frame, not what is left of it to be played
    const int sent = avcodec().avcodec_send_packet(context, &packet);
    if (sent < 0) {
        return sent;
    }
    avcodec().avcodec_send_packet(context, nullptr);
    return avcodec().avcodec_receive_frame(context, frame.get());
}

} // namespace

bool hasDecoder(int codecId) {
    return avcodec().avcodec_find_decoder(static_cast<AVCodecID>(codecId)) != nullptr;
}

ProbeResult completeParameters(AVCodecParameters& parameters) {
    if (!hasDecoder(parameters.codec_id)) {
        return {"no decoder"};
    }
    try {
        const Decoder decoder(&parameters, kMilliseconds);
        const int filled = avcodec().avcodec_parameters_from_context(&parameters, decoder.context());
        return {filled < 0 ? errorText(filled) : ""};
    } catch (const std::exception& error) {
        return {error.what()};
    }
}

ProbeResult completeParameters(AVCodecParameters& parameters, const AVPacket& firstPacket) {
    if (!hasDecoder(parameters.codec_id)) {
        return {"no decoder"};
    }
    std::optional<Decoder> decoder;
    try {
        decoder.emplace(&parameters, kMilliseconds);
    } catch (const std::exception& error) {
        return {error.what()};
    }
    Frame frame;
    const int decoded = decodeAlone(decoder->context(), firstPacket, frame);
    if (decoded < 0) {
        return {"nothing can be decoded: " + errorText(decoded)};
    }
    const int filled = avcodec().avcodec_parameters_from_context(&parameters, decoder->context());
    if (filled < 0) {
        return {errorText(filled)};
    }
    // Writers of files want to know it, and not every decoder says so by itself.
    if (parameters.codec_type == AVMEDIA_TYPE_AUDIO && parameters.frame_size == 0 &&
        !isPcm(parameters.codec_id)) {
        parameters.frame_size = frame->nb_samples;
    }
    return {};
}

} // namespace ko_player::ff_wrap
