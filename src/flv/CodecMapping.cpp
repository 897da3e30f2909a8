#include "flv/CodecMapping.h"

#include "flv/StandardTags.h"

#include <algorithm>
#include <limits>
#include <span>

namespace ko_player {
namespace {

using flv::fourCc;

struct Entry {
    std::uint32_t id;
    AVCodecID codec;
    const char* name;
};

constexpr Entry kVideoCodecs[] = {
    {2, AV_CODEC_ID_NONE, "H.263"},
    {3, AV_CODEC_ID_NONE, "Screen Video"},
    {4, AV_CODEC_ID_NONE, "VP6"},
    {5, AV_CODEC_ID_NONE, "VP6 with alpha"},
    {6, AV_CODEC_ID_NONE, "Screen Video 2"},
    {7, AV_CODEC_ID_H264, "H.264"},
    {12, AV_CODEC_ID_HEVC, "H.265"},
    {13, AV_CODEC_ID_AV1, "AV1"},
    {fourCc("avc1"), AV_CODEC_ID_H264, "H.264"},
    {fourCc("hvc1"), AV_CODEC_ID_HEVC, "H.265"},
    {fourCc("hev1"), AV_CODEC_ID_HEVC, "H.265"},
    {fourCc("vvc1"), AV_CODEC_ID_NONE, "H.266"},
    {fourCc("av01"), AV_CODEC_ID_AV1, "AV1"},
    {fourCc("vp09"), AV_CODEC_ID_VP9, "VP9"},
    {fourCc("vp08"), AV_CODEC_ID_VP8, "VP8"},
};

constexpr Entry kAudioCodecs[] = {
    {0, AV_CODEC_ID_NONE, "PCM"},
    {1, AV_CODEC_ID_NONE, "ADPCM"},
    {2, AV_CODEC_ID_MP3, "MP3"},
    {3, AV_CODEC_ID_NONE, "PCM"},
    {4, AV_CODEC_ID_NONE, "Nellymoser"},
    {5, AV_CODEC_ID_NONE, "Nellymoser"},
    {6, AV_CODEC_ID_NONE, "Nellymoser"},
    {7, AV_CODEC_ID_PCM_ALAW, "G.711 A-law"},
    {8, AV_CODEC_ID_PCM_MULAW, "G.711 mu-law"},
    {10, AV_CODEC_ID_AAC, "AAC"},
    {11, AV_CODEC_ID_NONE, "Speex"},
    {14, AV_CODEC_ID_MP3, "MP3"},
    {fourCc("mp4a"), AV_CODEC_ID_AAC, "AAC"},
    {fourCc(".mp3"), AV_CODEC_ID_MP3, "MP3"},
    {fourCc("Opus"), AV_CODEC_ID_OPUS, "Opus"},
    {fourCc("fLaC"), AV_CODEC_ID_FLAC, "FLAC"},
    {fourCc("ac-3"), AV_CODEC_ID_AC3, "AC-3"},
    {fourCc("ec-3"), AV_CODEC_ID_EAC3, "E-AC-3"},
};

/// FLV's own numbers have four bits.
constexpr std::uint32_t kLargestNumber = 15;

std::string unknownName(std::uint32_t id) {
    if (id <= kLargestNumber) {
        return "codec " + std::to_string(id);
    }
    std::string name;
    for (const unsigned shift : {24U, 16U, 8U, 0U}) {
        const auto byte = static_cast<char>(id >> shift & 0xFFU);
        name += byte >= ' ' && byte <= '~' ? byte : '?';
    }
    return name;
}

CodecName find(std::span<const Entry> codecs, std::uint32_t id) {
    const auto found =
        std::find_if(codecs.begin(), codecs.end(), [id](const Entry& entry) { return entry.id == id; });
    return found == codecs.end() ? CodecName{AV_CODEC_ID_NONE, unknownName(id)}
                                 : CodecName{found->codec, found->name};
}

} // namespace

CodecName videoCodecNamed(std::uint32_t codecId) {
    return find(kVideoCodecs, codecId);
}

CodecName audioCodecNamed(std::uint32_t soundFormat) {
    return find(kAudioCodecs, soundFormat);
}

std::string codecName(AVCodecID codec) {
    for (const std::span<const Entry> codecs :
         {std::span<const Entry>(kVideoCodecs), std::span<const Entry>(kAudioCodecs)}) {
        const auto found = std::find_if(codecs.begin(), codecs.end(),
                                        [codec](const Entry& entry) { return entry.codec == codec; });
        if (found != codecs.end()) {
            return found->name;
        }
    }
    return "codec " + std::to_string(static_cast<int>(codec));
}

std::uint32_t codecIdOfMetadata(std::int64_t value) {
    constexpr std::int64_t kLargestHeaderByte = 0xFF;
    if (value < 0 || value > std::numeric_limits<std::uint32_t>::max()) {
        return 0;
    }
    const auto number = static_cast<std::uint32_t>(value);
    return value > kLargestNumber && value <= kLargestHeaderByte ? number >> 4U : number;
}

AVCodecID videoCodecOf(std::int64_t flvCodecId) {
    switch (flvCodecId) {
    case 7:
        return AV_CODEC_ID_H264;
    case 12:
        return AV_CODEC_ID_HEVC;
    default:
        return AV_CODEC_ID_NONE;
    }
}

AVCodecID audioCodecOf(std::int64_t soundFormat) {
    switch (soundFormat) {
    case 2:
        return AV_CODEC_ID_MP3;
    case 7:
        return AV_CODEC_ID_PCM_ALAW;
    case 8:
        return AV_CODEC_ID_PCM_MULAW;
    case 10:
        return AV_CODEC_ID_AAC;
    default:
        return AV_CODEC_ID_NONE;
    }
}

std::string codecLogName(AVCodecID codec) {
    switch (codec) {
    case AV_CODEC_ID_H264:
        return "h264";
    case AV_CODEC_ID_HEVC:
        return "h265";
    case AV_CODEC_ID_MP3:
        return "mp3";
    case AV_CODEC_ID_PCM_ALAW:
        return "pcma";
    case AV_CODEC_ID_PCM_MULAW:
        return "pcmu";
    case AV_CODEC_ID_AAC:
        return "aac";
    default:
        return std::to_string(static_cast<int>(codec));
    }
}

} // namespace ko_player
