#include "ffmpeg/Avcodec.h"

#include "base/SharedLibrary.h"

extern "C" {
#include <libavcodec/version.h>
}

namespace ko_player::ff_wrap {
namespace {

Avcodec load() {
    // Never unloaded: packets and codecs may be in use to the end of the process.
    static const base::SharedLibrary library("avcodec", LIBAVCODEC_VERSION_MAJOR);
    Avcodec functions{};
    library.resolve(functions.avcodec_alloc_context3, "avcodec_alloc_context3");
    library.resolve(functions.avcodec_free_context, "avcodec_free_context");
    library.resolve(functions.avcodec_parameters_alloc, "avcodec_parameters_alloc");
    library.resolve(functions.avcodec_parameters_free, "avcodec_parameters_free");
    library.resolve(functions.avcodec_parameters_copy, "avcodec_parameters_copy");
    library.resolve(functions.avcodec_parameters_to_context, "avcodec_parameters_to_context");
    library.resolve(functions.avcodec_parameters_from_context, "avcodec_parameters_from_context");
    library.resolve(functions.avcodec_find_decoder, "avcodec_find_decoder");
    library.resolve(functions.avcodec_open2, "avcodec_open2");
    library.resolve(functions.avcodec_send_packet, "avcodec_send_packet");
    library.resolve(functions.avcodec_receive_frame, "avcodec_receive_frame");
    library.resolve(functions.avcodec_flush_buffers, "avcodec_flush_buffers");
    library.resolve(functions.avcodec_find_encoder, "avcodec_find_encoder");
    library.resolve(functions.avcodec_send_frame, "avcodec_send_frame");
    library.resolve(functions.avcodec_receive_packet, "avcodec_receive_packet");
    library.resolve(functions.av_packet_alloc, "av_packet_alloc");
    library.resolve(functions.av_packet_free, "av_packet_free");
    library.resolve(functions.av_packet_ref, "av_packet_ref");
    library.resolve(functions.av_packet_unref, "av_packet_unref");
    library.resolve(functions.av_packet_new_side_data, "av_packet_new_side_data");
    library.resolve(functions.av_packet_get_side_data, "av_packet_get_side_data");
    library.resolve(functions.av_new_packet, "av_new_packet");
    return functions;
}

} // namespace

const Avcodec& avcodec() {
    static const Avcodec functions = load();
    return functions;
}

} // namespace ko_player::ff_wrap
