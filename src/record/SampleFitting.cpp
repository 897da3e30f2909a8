#include "record/SampleFitting.h"

#include "ffmpeg/Avcodec.h"
#include "flv/AacConfig.h"
#include "record/ParameterSets.h"

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavcodec/packet.h>
}

#include <algorithm>
#include <climits>
#include <cstdint>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

namespace ko_player {
namespace {

std::span<const std::uint8_t> newConfigurationIn(const AVPacket& packet) {
    std::size_t size = 0;
    const std::uint8_t* data =
        ff_wrap::avcodec().av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &size);
    return {data, data == nullptr ? 0 : size};
}

std::span<const std::uint8_t> extradataOf(const AVCodecParameters& parameters) {
    return {parameters.extradata, static_cast<std::size_t>(std::max(parameters.extradata_size, 0))};
}

} // namespace

ff_wrap::CodecParametersPtr fittingParameters(const AVCodecParameters& parameters) {
    if (parameters.sample_rate < 1 || parameters.ch_layout.nb_channels < 1) {
        throw std::runtime_error("its sample rate and channels are not known");
    }
    auto fitting = ff_wrap::makeCodecParameters();
    if (ff_wrap::avcodec().avcodec_parameters_copy(fitting.get(), &parameters) < 0) {
        throw std::bad_alloc();
    }
    if (fitting->codec_id == AV_CODEC_ID_AAC && fitting->extradata_size == 0) {
        const auto aac = makeAacConfig(fitting->sample_rate, fitting->ch_layout.nb_channels);
        if (!aac) {
            throw std::runtime_error("no configuration came");
        }
        ff_wrap::allocExtradata(*fitting, aac->config.size());
        std::copy(aac->config.begin(), aac->config.end(), fitting->extradata);
    }
    return fitting;
}

bool isSameSound(const AVCodecParameters& inFile, const AVCodecParameters& parameters) {
    return inFile.codec_id == parameters.codec_id && inFile.sample_rate == parameters.sample_rate &&
           inFile.ch_layout.nb_channels == parameters.ch_layout.nb_channels;
}

bool bringsNewConfiguration(const ff_wrap::Packet& packet, const AVCodecParameters& inFile) {
    const auto configuration = newConfigurationIn(*packet.get());
    const auto known = extradataOf(inFile);
    return !configuration.empty() &&
           !std::equal(configuration.begin(), configuration.end(), known.begin(), known.end());
}

void makeFit(ff_wrap::Packet& packet, int codecId) {
    // ISO/IEC 13818-7, 6.2: syncword UB12, ID UB1, layer UB2, protection_absent UB1
    constexpr int kHeaderBytes = 7;
    constexpr int kChecksumBytes = 2;
    AVPacket& aac = *packet.get();
    if (codecId != AV_CODEC_ID_AAC || aac.size <= kHeaderBytes + kChecksumBytes || aac.data[0] != 0xFF ||
        (aac.data[1] & 0xF6U) != 0xF0U) {
        return;
    }
    const int header = kHeaderBytes + ((aac.data[1] & 1U) == 0 ? kChecksumBytes : 0);
    aac.data += header;
    aac.size -= header;
}

std::shared_ptr<ff_wrap::Packet> withParameterSets(std::shared_ptr<ff_wrap::Packet> packet, int codecId) {
    const std::vector<std::uint8_t> sets = parameterSetsOf(codecId, newConfigurationIn(*packet->get()));
    if (sets.empty() || sets.size() > static_cast<std::size_t>(INT_MAX - packet->size())) {
        return packet;
    }
    auto longer = std::make_shared<ff_wrap::Packet>();
    const AVPacket& in = *packet->get();
    AVPacket& out = *longer->get();
    if (ff_wrap::avcodec().av_new_packet(&out, static_cast<int>(sets.size()) + in.size) < 0) {
        throw std::bad_alloc();
    }
    std::copy(sets.begin(), sets.end(), out.data);
    std::copy_n(in.data, in.size, out.data + sets.size());
    out.dts = in.dts;
    out.pts = in.pts;
    out.flags = in.flags;
    return longer;
}

} // namespace ko_player
