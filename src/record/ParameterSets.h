#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace ko_player {

/// The parameter sets of a decoder configuration record, each behind its length, as they stand among the NAL
/// units of a picture: of H.264 (AVCDecoderConfigurationRecord, ISO/IEC 14496-15, 5.3.3) or HEVC
/// (HEVCDecoderConfigurationRecord, 8.3.3). Empty for other codecs (an AVCodecID), for a record that is
/// broken, and for one whose lengths have another size than the 4 bytes that files here have.
[[nodiscard]] std::vector<std::uint8_t> parameterSetsOf(int codecId, std::span<const std::uint8_t> record);

} // namespace ko_player
