#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

namespace ko_player::ff_wrap {

/// The functions of libavformat that this program calls, under their own names.
///
/// The library is loaded when it is first asked for, by a local file or an export. A stream never needs it:
/// it draws in some forty further libraries, which would cost every start 15 ms and every worker several
/// megabytes.
struct Avformat {
    decltype(&::avformat_open_input) avformat_open_input;
    decltype(&::avformat_close_input) avformat_close_input;
    decltype(&::avformat_find_stream_info) avformat_find_stream_info;
    decltype(&::av_dump_format) av_dump_format;
    decltype(&::av_read_frame) av_read_frame;

    decltype(&::avformat_alloc_output_context2) avformat_alloc_output_context2;
    decltype(&::avformat_free_context) avformat_free_context;
    decltype(&::avformat_query_codec) avformat_query_codec;
    decltype(&::avformat_new_stream) avformat_new_stream;
    decltype(&::avformat_write_header) avformat_write_header;
    decltype(&::av_interleaved_write_frame) av_interleaved_write_frame;
    decltype(&::av_write_frame) av_write_frame;
    decltype(&::av_write_trailer) av_write_trailer;
    decltype(&::avio_open) avio_open;
    decltype(&::avio_close) avio_close;
    decltype(&::avio_alloc_context) avio_alloc_context;
    decltype(&::avio_context_free) avio_context_free;
    decltype(&::avio_seek) avio_seek;
    decltype(&::avio_write) avio_write;
    decltype(&::avio_flush) avio_flush;
};

/// Loads the library on the first call. Throws std::runtime_error with the system's reason. Thread-safe.
[[nodiscard]] const Avformat& avformat();

} // namespace ko_player::ff_wrap
