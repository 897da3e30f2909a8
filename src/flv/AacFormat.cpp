#include "flv/AacFormat.h"

#include <array>
#include <cstddef>

namespace ko_player {
namespace {

/// By samplingFrequencyIndex.
constexpr std::array<int, 13> kSampleRates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                           22050, 16000, 12000, 11025, 8000,  7350};
constexpr int kSbr = 5; // audioObjectType
constexpr int kPs = 29; // audioObjectType

class BitReader {
public:
    explicit BitReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    int take(unsigned count) {
        unsigned value = 0;
        for (; count > 0; --count, ++at_) {
            isCutOff_ = isCutOff_ || at_ / 8 >= bytes_.size();
            value = value << 1U | (isCutOff_ ? 0U : bytes_[at_ / 8] >> (7 - at_ % 8) & 1U);
        }
        return static_cast<int>(value);
    }
    [[nodiscard]] bool isCutOff() const { return isCutOff_; }

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t at_ = 0;
    bool isCutOff_ = false;
};

int takeObjectType(BitReader& in) {
    constexpr int kEscape = 31;
    const int type = in.take(5);                     // audioObjectType UB5
    return type == kEscape ? 32 + in.take(6) : type; // audioObjectTypeExt UB6
}

/// 0 for an index that is reserved.
int takeRate(BitReader& in) {
    constexpr int kSpelledOut = 15;
    const int index = in.take(4); // samplingFrequencyIndex UB4
    if (index == kSpelledOut) {
        return in.take(24); // samplingFrequency UB24
    }
    return index < static_cast<int>(kSampleRates.size()) ? kSampleRates[static_cast<std::size_t>(index)] : 0;
}

} // namespace

std::optional<AacFormat> readAacFormat(std::span<const std::uint8_t> config) {
    constexpr int kSevenPointOne = 7;
    BitReader in(config);
    AacFormat format;
    format.objectType = takeObjectType(in);
    format.coreRate = format.outputRate = takeRate(in);
    format.channels = in.take(4); // channelConfiguration UB4
    if (format.objectType == kSbr || format.objectType == kPs) {
        format.outputRate = takeRate(in);
        format.objectType = takeObjectType(in);
    }
    if (in.isCutOff() || format.coreRate == 0 || format.outputRate == 0 || format.channels > kSevenPointOne) {
        return std::nullopt;
    }
    if (format.channels == kSevenPointOne) {
        format.channels = 8;
    }
    return format;
}

} // namespace ko_player
