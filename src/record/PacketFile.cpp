#include "record/PacketFile.h"

#include "ffmpeg/Avformat.h"
#include "ffmpeg/FfmpegError.h"

extern "C" {
#include <libavutil/dict.h>
}

namespace ko_player::packet_file {

using ff_wrap::avformat;

void CloseIo::operator()(AVIOContext* io) const noexcept {
    static_cast<void>(avformat().avio_close(io));
}

IoPtr open(const std::string& fileName) {
    AVIOContext* io = nullptr;
    const int opened = avformat().avio_open(&io, fileName.c_str(), AVIO_FLAG_WRITE);
    if (opened < 0) {
        throw FileError("Muxer.writeHeader avio_open: file: " + fileName +
                        ", err: " + ff_wrap::errorText(opened));
    }
    return IoPtr(io);
}

void writeHeader(AVFormatContext& context, const std::string& fileName, const WriterOptions& options) {
    AVDictionary* dictionary = nullptr;
    for (const auto& [key, value] : options) {
        av_dict_set(&dictionary, key, value, 0);
    }
    const int written = avformat().avformat_write_header(&context, &dictionary);
    av_dict_free(&dictionary);
    if (written >= 0) {
        return;
    }
    const std::string what = "Muxer.writeHeader avformat_write_header: file: " + fileName +
                             ", err: " + ff_wrap::errorText(written);
    if (written == AVERROR(ENOMEM) || context.pb->error < 0 ||
        (context.pb->seekable & AVIO_SEEKABLE_NORMAL) == 0) {
        throw FileError(what);
    }
    throw std::runtime_error(what);
}

std::runtime_error closeError(const char* step, const std::string& fileName, int error) {
    return std::runtime_error("Muxer.close " + std::string(step) + ": file: " + fileName +
                              ", err: " + ff_wrap::errorText(error));
}

} // namespace ko_player::packet_file
