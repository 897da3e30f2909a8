#include "flv/AacFormat.h"

#include <gtest/gtest.h>

#include <vector>

namespace ko_player {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Case {
    const char* name;
    Bytes config;
    std::optional<AacFormat> expected;
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

class AacFormatOf : public testing::TestWithParam<Case> {};

TEST_P(AacFormatOf, IsRead) {
    EXPECT_EQ(readAacFormat(GetParam().config), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Configurations, AacFormatOf,
    testing::Values(Case{"Usual", {0x12, 0x10}, AacFormat{2, 44100, 44100, 2}},
                    Case{"Mono8k", {0x15, 0x88}, AacFormat{2, 8000, 8000, 1}},
                    Case{"WithSyncExtension", {0x12, 0x10, 0x56, 0xE5, 0}, AacFormat{2, 44100, 44100, 2}},
                    Case{"RateSpelledOut", {0x17, 0x80, 0x56, 0x22, 0x10}, AacFormat{2, 44100, 44100, 2}},
                    Case{"Sbr", {0x2B, 0x8A, 0x08}, AacFormat{2, 22050, 44100, 1}},
                    Case{"SevenPointOne", {0x12, 0x38}, AacFormat{2, 44100, 44100, 8}},
                    Case{"ChannelsInTheFrames", {0x12, 0x00}, AacFormat{2, 44100, 44100, 0}},
                    Case{"ReservedRate", {0x16, 0x90}, std::nullopt},
                    Case{"ReservedChannels", {0x12, 0x40}, std::nullopt}, Case{"Empty", {}, std::nullopt},
                    Case{"CutOff", {0x12}, std::nullopt},
                    Case{"SpelledOutAndCutOff", {0x17, 0x80, 0x56, 0x22}, std::nullopt},
                    Case{"SbrCutOff", {0x2B, 0x8A}, std::nullopt}),
    [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace ko_player
