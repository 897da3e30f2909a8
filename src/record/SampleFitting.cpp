#include "record/SampleFitting.h"

#include "ffmpeg/Avcodec.h"
#include "flv/AacConfig.h"
#include "flv/AacFormat.h"
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

/// Writers say the same AAC in more words and in fewer.
bool isSameConfiguration(int codecId, std::span<const std::uint8_t> a, std::span<const std::uint8_t> b) {
    if (codecId == AV_CODEC_ID_AAC) {
        const auto first = readAacFormat(a);
        const auto second = readAacFormat(b);
        if (first && second) {
            return first->objectType == second->objectType && first->coreRate == second->coreRate &&
                   first->channels == second->channels;
        }
    }
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
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
    if (inFile.codec_id != parameters.codec_id) {
        return false;
    }
    if (inFile.codec_id == AV_CODEC_ID_AAC && !extradataOf(inFile).empty() &&
        !extradataOf(parameters).empty()) {
        return isSameConfiguration(AV_CODEC_ID_AAC, extradataOf(inFile), extradataOf(parameters));
    }
    return inFile.sample_rate == parameters.sample_rate &&
           inFile.ch_layout.nb_channels == parameters.ch_layout.nb_channels;
}

bool bringsNewConfiguration(const ff_wrap::Packet& packet, const AVCodecParameters& inFile) {
    const auto configuration = newConfigurationIn(*packet.get());
    return !configuration.empty() &&
           !isSameConfiguration(inFile.codec_id, configuration, extradataOf(inFile));
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

void ConfigurationFollower::notice(const ff_wrap::Packet& picture, int codecId) {
    std::vector<std::uint8_t> sets = parameterSetsOf(codecId, newConfigurationIn(*picture.get()));
    if (!sets.empty()) {
        sets_ = std::move(sets);
    }
}

ConfigurationFollower::PacketPtr ConfigurationFollower::withParameterSets(PacketPtr picture) const {
    const AVPacket& in = *picture->get();
    const bool isEntry = (in.flags & AV_PKT_FLAG_KEY) != 0 || !newConfigurationIn(in).empty();
    if (sets_.empty() || !isEntry || sets_.size() > static_cast<std::size_t>(INT_MAX - in.size)) {
        return picture;
    }
    auto longer = std::make_shared<ff_wrap::Packet>();
    AVPacket& out = *longer->get();
    if (ff_wrap::avcodec().av_new_packet(&out, static_cast<int>(sets_.size()) + in.size) < 0) {
        throw std::bad_alloc();
    }
    std::copy(sets_.begin(), sets_.end(), out.data);
    std::copy_n(in.data, in.size, out.data + sets_.size());
    out.dts = in.dts;
    out.pts = in.pts;
    out.flags = in.flags;
    return longer;
}

} // namespace ko_player
