#include "flv/AacConfig.h"

#include <algorithm>

namespace ko_player {
namespace {

constexpr std::array<int, 13> kSampleRates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                           22050, 16000, 12000, 11025, 8000,  7350};
constexpr unsigned kObjectTypeAacLc = 2;
constexpr unsigned kSyncExtensionType = 0x2B7;
constexpr unsigned kObjectTypeSbr = 5;

} // namespace

std::optional<AacConfig> makeAacConfig(int sampleRate, int channels) {
    const auto* const found = std::find(kSampleRates.begin(), kSampleRates.end(), sampleRate);
    if (found == kSampleRates.end()) {
        return std::nullopt;
    }
    const auto rateIndex = static_cast<unsigned>(found - kSampleRates.begin());
    // audioObjectType UB5, samplingFrequencyIndex UB4, channelConfiguration UB4, three flags UB1 that are 0
    const unsigned config =
        kObjectTypeAacLc << 11U | rateIndex << 7U | (static_cast<unsigned>(channels) & 0x0FU) << 3U;
    // syncExtensionType UB11, extensionAudioObjectType UB5, sbrPresentFlag UB1 that is 0
    constexpr unsigned kBehind = (kSyncExtensionType << 5U | kObjectTypeSbr) << 8U;
    const auto byte = [](unsigned value, unsigned shift) {
        return static_cast<std::uint8_t>(value >> shift & 0xFFU);
    };
    return AacConfig{{byte(config, 8), byte(config, 0)},
                     {byte(kBehind, 16), byte(kBehind, 8), byte(kBehind, 0)}};
}

} // namespace ko_player
