#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace ko_player::ff_wrap {

/// The functions of libavcodec that this program calls, under their own names.
///
/// The library draws in some eighty further ones, and loading them takes longer than anything else at the
/// start. So it is loaded by the first call of avcodec(), which the stream controller makes on a thread of
/// its own while the server answers; whoever needs a function before the library is there waits for it.
struct Avcodec {
    decltype(&::avcodec_alloc_context3) avcodec_alloc_context3;
    decltype(&::avcodec_free_context) avcodec_free_context;
    decltype(&::avcodec_parameters_alloc) avcodec_parameters_alloc;
    decltype(&::avcodec_parameters_free) avcodec_parameters_free;
    decltype(&::avcodec_parameters_copy) avcodec_parameters_copy;
    decltype(&::avcodec_parameters_to_context) avcodec_parameters_to_context;
    decltype(&::avcodec_parameters_from_context) avcodec_parameters_from_context;
    decltype(&::avcodec_find_decoder) avcodec_find_decoder;
    decltype(&::avcodec_open2) avcodec_open2;
    decltype(&::avcodec_send_packet) avcodec_send_packet;
    decltype(&::avcodec_receive_frame) avcodec_receive_frame;
    decltype(&::avcodec_flush_buffers) avcodec_flush_buffers;
    decltype(&::avcodec_find_encoder) avcodec_find_encoder;
    decltype(&::avcodec_send_frame) avcodec_send_frame;
    decltype(&::avcodec_receive_packet) avcodec_receive_packet;

    decltype(&::av_packet_alloc) av_packet_alloc;
    decltype(&::av_packet_free) av_packet_free;
    decltype(&::av_packet_ref) av_packet_ref;
    decltype(&::av_packet_unref) av_packet_unref;
    decltype(&::av_packet_new_side_data) av_packet_new_side_data;
    decltype(&::av_packet_get_side_data) av_packet_get_side_data;
    decltype(&::av_new_packet) av_new_packet;
};

/// Loads the library on the first call. Throws std::runtime_error with the system's reason. Thread-safe.
[[nodiscard]] const Avcodec& avcodec();

} // namespace ko_player::ff_wrap
