#include "flv/AacConfig.h"

#include <algorithm>
#include <cstddef>

namespace ko_player {
namespace {

constexpr std::array<int, 13> kSampleRates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                           22050, 16000, 12000, 11025, 8000,  7350};
constexpr unsigned kObjectTypeAacLc = 2;
constexpr unsigned kSyncExtensionType = 0x2B7;
constexpr unsigned kObjectTypeSbr = 5;

/// The most significant bit of the first byte comes first.
class Bits {
public:
    explicit Bits(std::span<const std::uint8_t> bytes) {
        for (const std::uint8_t byte : bytes) {
            append(byte, 8);
        }
    }
    void append(std::uint32_t value, unsigned count) {
        for (unsigned i = count; i-- > 0;) {
            bits_.push_back((value >> i & 1U) != 0);
        }
    }
    /// Bits behind the end are 0.
    std::uint32_t take(unsigned count) {
        std::uint32_t value = 0;
        for (unsigned i = 0; i < count; ++i, ++at_) {
            value = value << 1U | (at_ < bits_.size() && bits_[at_] ? 1U : 0U);
        }
        return value;
    }
    /// What has been taken is replaced by other bits.
    [[nodiscard]] std::vector<std::uint8_t> withBegin(const Bits& begin) const {
        std::vector<bool> bits = begin.bits_;
        bits.insert(bits.end(), bits_.begin() + static_cast<std::ptrdiff_t>(std::min(at_, bits_.size())),
                    bits_.end());
        std::vector<std::uint8_t> bytes((bits.size() + 7) / 8);
        for (std::size_t i = 0; i < bits.size(); ++i) {
            bytes[i / 8] = static_cast<std::uint8_t>(bytes[i / 8] | (bits[i] ? 0x80U >> i % 8 : 0U));
        }
        return bytes;
    }

private:
    std::vector<bool> bits_;
    std::size_t at_ = 0;
};

/// The index of a rate that is at most one percent off.
std::optional<std::uint32_t> indexNear(std::uint32_t sampleRate) {
    constexpr std::uint32_t kPercent = 100;
    for (std::size_t i = 0; i < kSampleRates.size(); ++i) {
        const auto rate = static_cast<std::uint32_t>(kSampleRates[i]);
        const std::uint32_t off = rate > sampleRate ? rate - sampleRate : sampleRate - rate;
        if (off <= rate / kPercent) {
            return static_cast<std::uint32_t>(i);
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<SpelledOutRate> spelledOutRate(std::span<const std::uint8_t> config) {
    constexpr std::uint32_t kEscapedType = 31;
    constexpr std::uint32_t kSpelledOut = 15;
    constexpr std::size_t kLongest = 64; // whatever is longer is no configuration of sound
    if (config.size() > kLongest) {
        return std::nullopt;
    }
    Bits bits(config);
    Bits begin({});
    const std::uint32_t type = bits.take(5); // audioObjectType UB5
    begin.append(type, 5);
    if (type == kEscapedType) {
        begin.append(bits.take(6), 6); // audioObjectTypeExt UB6
    }
    if (bits.take(4) != kSpelledOut) { // samplingFrequencyIndex UB4
        return std::nullopt;
    }
    SpelledOutRate result;
    result.sampleRate = bits.take(24); // samplingFrequency UB24
    if (const auto index = indexNear(result.sampleRate)) {
        begin.append(*index, 4);
        result.config = bits.withBegin(begin);
    }
    return result;
}

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
