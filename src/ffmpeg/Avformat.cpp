#include "ffmpeg/Avformat.h"

#include "base/SharedLibrary.h"

extern "C" {
#include <libavformat/version.h>
}

namespace ko_player::ff_wrap {
namespace {

Avformat load() {
    // Never unloaded: codecs and protocols of the library may keep threads and state of their own.
    static const base::SharedLibrary library("avformat", LIBAVFORMAT_VERSION_MAJOR);
    Avformat functions{};
    library.resolve(functions.avformat_open_input, "avformat_open_input");
    library.resolve(functions.avformat_close_input, "avformat_close_input");
    library.resolve(functions.avformat_find_stream_info, "avformat_find_stream_info");
    library.resolve(functions.av_dump_format, "av_dump_format");
    library.resolve(functions.av_read_frame, "av_read_frame");
    library.resolve(functions.avformat_alloc_output_context2, "avformat_alloc_output_context2");
    library.resolve(functions.avformat_free_context, "avformat_free_context");
    library.resolve(functions.avformat_query_codec, "avformat_query_codec");
    library.resolve(functions.avformat_new_stream, "avformat_new_stream");
    library.resolve(functions.avformat_write_header, "avformat_write_header");
    library.resolve(functions.av_interleaved_write_frame, "av_interleaved_write_frame");
    library.resolve(functions.av_write_frame, "av_write_frame");
    library.resolve(functions.av_write_trailer, "av_write_trailer");
    library.resolve(functions.avio_open, "avio_open");
    library.resolve(functions.avio_close, "avio_close");
    library.resolve(functions.avio_alloc_context, "avio_alloc_context");
    library.resolve(functions.avio_context_free, "avio_context_free");
    library.resolve(functions.avio_seek, "avio_seek");
    library.resolve(functions.avio_write, "avio_write");
    library.resolve(functions.avio_flush, "avio_flush");
    return functions;
}

} // namespace

const Avformat& avformat() {
    static const Avformat functions = load();
    return functions;
}

} // namespace ko_player::ff_wrap
