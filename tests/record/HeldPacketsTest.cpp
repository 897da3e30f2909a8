#include "record/HeldPackets.h"

#include "flv/FillPacket.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/packet.h>
}

namespace ko_player {
namespace {

HeldPackets::PacketPtr packet(std::int64_t dtsMs, std::size_t size = 6, std::size_t sideData = 0) {
    auto result = std::make_shared<ff_wrap::Packet>();
    const std::vector<std::uint8_t> bytes(size, 0x41);
    std::vector<std::uint8_t> side(sideData, 0x42);
    FillPacket(*result, bytes.data(), static_cast<std::uint32_t>(size), dtsMs, side, 0);
    return result;
}

TEST(HeldPackets, AreEmptyAtFirst) {
    const HeldPackets held;
    EXPECT_TRUE(held.empty());
    EXPECT_EQ(held.count(), 0U);
    EXPECT_EQ(held.bytes(), 0U);
    EXPECT_EQ(held.spanMs(), 0);
    EXPECT_EQ(held.earliestMs(), std::nullopt);
    EXPECT_FALSE(held.has(Medium::Video));
}

TEST(HeldPackets, ComeBackInTheirOrder) {
    HeldPackets held;
    held.push(Medium::Audio, packet(20));
    held.push(Medium::Video, packet(0));
    held.push(Medium::Audio, packet(43));
    EXPECT_EQ(held.count(), 3U);
    const auto first = held.pop();
    EXPECT_EQ(first.medium, Medium::Audio);
    EXPECT_EQ((*first.packet)->dts, 20);
    EXPECT_EQ(held.pop().medium, Medium::Video);
    EXPECT_FALSE(held.has(Medium::Video));
    EXPECT_TRUE(held.has(Medium::Audio));
}

TEST(HeldPackets, CountPayloadAndSideData) {
    HeldPackets held;
    held.push(Medium::Video, packet(0, 100, 11));
    held.push(Medium::Audio, packet(5, 30));
    EXPECT_EQ(held.bytes(), 141U);
    static_cast<void>(held.pop());
    EXPECT_EQ(held.bytes(), 30U);
    static_cast<void>(held.pop());
    EXPECT_EQ(held.bytes(), 0U);
}

TEST(HeldPackets, KnowTheirTimes) {
    HeldPackets held;
    held.push(Medium::Video, packet(100));
    EXPECT_EQ(held.spanMs(), 0);
    held.push(Medium::Audio, packet(60));
    held.push(Medium::Video, packet(140));
    EXPECT_EQ(held.spanMs(), 40);
    EXPECT_EQ(held.earliestMs(), 60);
    static_cast<void>(held.pop());
    EXPECT_EQ(held.spanMs(), 80);
}

} // namespace
} // namespace ko_player
