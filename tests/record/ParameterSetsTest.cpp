#include "record/ParameterSets.h"

#include <gtest/gtest.h>

#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace ko_player {
namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes kAvc = {1, 0x64, 0, 0x1E, 0xFF, 0xE2, 0, 3, 0x67, 1, 2, 0, 2, 0x67, 3, 1, 0, 4, 0x68, 5, 6, 7};
const Bytes kAvcSets = {0, 0, 0, 3, 0x67, 1, 2, 0, 0, 0, 2, 0x67, 3, 0, 0, 0, 4, 0x68, 5, 6, 7};

Bytes hevc() {
    Bytes record(22, 0);
    record[0] = 1;
    record[21] = 0xF3;                                        // four bytes of length
    const Bytes arrays = {2,    0xA0, 0, 1, 0, 2,    0x40, 1, // a video parameter set
                          0xA1, 0,    2, 0, 3, 0x42, 2,    3, 0, 1, 0x42};
    record.insert(record.end(), arrays.begin(), arrays.end());
    return record;
}
const Bytes kHevcSets = {0, 0, 0, 2, 0x40, 1, 0, 0, 0, 3, 0x42, 2, 3, 0, 0, 0, 1, 0x42};

Bytes with(Bytes record, std::size_t at, std::uint8_t value) {
    record.at(at) = value;
    return record;
}

struct Case {
    const char* name;
    int codec;
    Bytes record;
    Bytes expected;
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

class ParameterSetsOf : public testing::TestWithParam<Case> {};

TEST_P(ParameterSetsOf, StandBehindTheirLengths) {
    EXPECT_EQ(parameterSetsOf(GetParam().codec, GetParam().record), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Records, ParameterSetsOf,
    testing::Values(Case{"H264", AV_CODEC_ID_H264, kAvc, kAvcSets},
                    Case{"Hevc", AV_CODEC_ID_HEVC, hevc(), kHevcSets},
                    Case{"OtherCodec", AV_CODEC_ID_AV1, kAvc, {}}, Case{"Empty", AV_CODEC_ID_H264, {}, {}},
                    Case{"H264WithLengthsOfTwoBytes", AV_CODEC_ID_H264, with(kAvc, 4, 0xFD), {}},
                    Case{"HevcWithLengthsOfOneByte", AV_CODEC_ID_HEVC, with(hevc(), 21, 0xF0), {}},
                    Case{"H264ThatPromisesMore", AV_CODEC_ID_H264, with(kAvc, 5, 0xFF), {}},
                    Case{"H264WithALengthThatLies", AV_CODEC_ID_H264, with(kAvc, 6, 0xFF), {}},
                    Case{"HevcThatPromisesMore", AV_CODEC_ID_HEVC, with(hevc(), 22, 0xFF), {}},
                    Case{"HevcWithManyUnits", AV_CODEC_ID_HEVC, with(hevc(), 24, 0xFF), {}}),
    [](const auto& instance) { return instance.param.name; });

/// The bytes behind the cut are sets as well: who reads them returns them.
TEST(ParameterSets, OfARecordThatIsCutOffAreNone) {
    for (const auto& [codec, record] :
         {std::pair{AV_CODEC_ID_H264, kAvc}, std::pair{AV_CODEC_ID_HEVC, hevc()}}) {
        for (std::size_t size = 0; size < record.size(); ++size) {
            EXPECT_TRUE(parameterSetsOf(codec, std::span(record).first(size)).empty())
                << codec << ", " << size;
            const Bytes exact(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_TRUE(parameterSetsOf(codec, exact).empty()) << codec << ", " << size;
        }
    }
}

} // namespace
} // namespace ko_player
