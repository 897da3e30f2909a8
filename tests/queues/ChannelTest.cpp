#include "Packets.h"
#include "queues/MediaQueues.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace ko_player::details {
namespace {

using mediaworker::test::makePacket;

TEST(Channel, DeliversInOrder) {
    PacketChannel channel(1000);
    EXPECT_EQ(channel.push(makePacket(1, 10), Blocking::Yes), PushResult::Pushed);
    EXPECT_EQ(channel.push(makePacket(2, 20), Blocking::No), PushResult::Pushed);
    EXPECT_EQ(channel.bytesHeld(), 30U);
    EXPECT_EQ((*channel.pop())->dts, 1);
    EXPECT_EQ(channel.bytesHeld(), 20U);
    EXPECT_EQ((*channel.pop())->dts, 2);
    EXPECT_EQ(channel.bytesHeld(), 0U);
}

TEST(Channel, AcceptsAPacketOfAnySizeWhenEmpty) {
    PacketChannel channel(0x800000);
    EXPECT_EQ(channel.push(makePacket(1, 0x800001), Blocking::No), PushResult::Pushed);
    EXPECT_EQ(channel.push(makePacket(2, 1), Blocking::No), PushResult::Full);
}

TEST(Channel, IsFullWhenItsPacketsCostTooMuchMemory) {
    constexpr std::uint64_t kEach = ff_wrap::Packet::kOverheadBytes + 5;
    PacketChannel channel({.payloadBytes = 1000, .memoryBytes = 3 * kEach});
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(channel.push(makePacket(i, 5), Blocking::No), PushResult::Pushed);
    }
    EXPECT_EQ(channel.memoryHeld(), 3 * kEach);
    EXPECT_EQ(channel.push(makePacket(3, 5), Blocking::No), PushResult::Full);
    EXPECT_EQ((*channel.pop())->dts, 0);
    EXPECT_EQ(channel.memoryHeld(), 2 * kEach);
    EXPECT_EQ(channel.push(makePacket(4, 5), Blocking::No), PushResult::Pushed);
    while (channel.memoryHeld() > 0) {
        ASSERT_NE(channel.pop(), nullptr);
    }
    EXPECT_EQ(channel.bytesHeld(), 0U);
}

TEST(Channel, CountsWhatRidesOnAPacket) {
    PacketChannel channel({.payloadBytes = 1000, .memoryBytes = 100'000});
    const auto packet = [] {
        auto made = makePacket(0, 5);
        EXPECT_NE(av_packet_new_side_data(made->get(), AV_PKT_DATA_NEW_EXTRADATA, 60'000), nullptr);
        return made;
    };
    ASSERT_EQ(channel.push(packet(), Blocking::No), PushResult::Pushed);
    EXPECT_EQ(channel.push(packet(), Blocking::No), PushResult::Full);
    EXPECT_EQ(channel.bytesHeld(), 5U);
}

TEST(Channel, AcceptsAPacketThatCostsAnyMemoryWhenEmpty) {
    PacketChannel channel({.payloadBytes = 1000, .memoryBytes = 100});
    EXPECT_EQ(channel.push(makePacket(1, 5), Blocking::No), PushResult::Pushed);
    EXPECT_EQ(channel.push(makePacket(2, 5), Blocking::No), PushResult::Full);
}

TEST(Channel, RefusesWithoutBlockingAndStaysAsItWas) {
    PacketChannel channel(100);
    ASSERT_EQ(channel.push(makePacket(1, 60), Blocking::No), PushResult::Pushed);
    EXPECT_EQ(channel.push(makePacket(2, 41), Blocking::No), PushResult::Full);
    EXPECT_EQ(channel.bytesHeld(), 60U);
    EXPECT_EQ(channel.push(makePacket(3, 40), Blocking::No), PushResult::Pushed)
        << "exactly full is not over";
    EXPECT_EQ((*channel.pop())->dts, 1);
    EXPECT_EQ((*channel.pop())->dts, 3);
}

TEST(Channel, ABlockedPushGoesOnWhenThereIsRoom) {
    PacketChannel channel(100);
    ASSERT_EQ(channel.push(makePacket(1, 100), Blocking::Yes), PushResult::Pushed);
    auto blocked =
        std::async(std::launch::async, [&] { return channel.push(makePacket(2, 100), Blocking::Yes); });
    EXPECT_EQ((*channel.pop())->dts, 1);
    EXPECT_EQ(blocked.get(), PushResult::Pushed);
    EXPECT_EQ((*channel.pop())->dts, 2);
}

TEST(Channel, ClosingDeliversWhatIsQueuedThenNothing) {
    PacketChannel channel(100);
    ASSERT_EQ(channel.push(makePacket(1, 10), Blocking::Yes), PushResult::Pushed);
    channel.close();
    EXPECT_EQ(channel.push(makePacket(2, 10), Blocking::Yes), PushResult::Ended);
    EXPECT_EQ((*channel.pop())->dts, 1);
    EXPECT_EQ(channel.pop(), nullptr);
    EXPECT_FALSE(channel.isStopped());
}

TEST(Channel, StoppingDeliversNothing) {
    PacketChannel channel(100);
    ASSERT_EQ(channel.push(makePacket(1, 10), Blocking::Yes), PushResult::Pushed);
    channel.stop();
    EXPECT_EQ(channel.pop(), nullptr);
    EXPECT_EQ(channel.push(makePacket(2, 10), Blocking::No), PushResult::Ended);
}

TEST(Channel, ClosingDoesNotUndoStopping) {
    PacketChannel channel(100);
    ASSERT_EQ(channel.push(makePacket(1, 10), Blocking::Yes), PushResult::Pushed);
    channel.stop();
    channel.close();
    EXPECT_TRUE(channel.isStopped());
    EXPECT_EQ(channel.pop(), nullptr);
}

TEST(Channel, StoppingWakesBothSides) {
    PacketChannel empty(100);
    auto reader = std::async(std::launch::async, [&] { return empty.pop(); });
    empty.stop();
    EXPECT_EQ(reader.get(), nullptr);

    PacketChannel full(100);
    ASSERT_EQ(full.push(makePacket(1, 100), Blocking::Yes), PushResult::Pushed);
    auto writer = std::async(std::launch::async, [&] { return full.push(makePacket(2, 1), Blocking::Yes); });
    full.stop();
    EXPECT_EQ(writer.get(), PushResult::Ended);
}

TEST(Channel, ANegativeSizeIsAnError) {
    PacketChannel channel(100);
    const auto packet = makePacket(1, 10);
    const int size = (*packet)->size;
    (*packet)->size = -1;
    EXPECT_THROW(channel.push(packet, Blocking::No), std::runtime_error);
    (*packet)->size = size;
    EXPECT_EQ(channel.bytesHeld(), 0U);
}

TEST(Channel, CarriesManyPacketsBetweenThreads) {
    PacketChannel channel(64);
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i) {
            ASSERT_EQ(channel.push(makePacket(i, 1 + i % 40), Blocking::Yes), PushResult::Pushed);
        }
        channel.close();
    });
    int next = 0;
    while (const auto packet = channel.pop()) {
        EXPECT_EQ((*packet)->dts, next++);
    }
    writer.join();
    EXPECT_EQ(next, 2000);
}

} // namespace
} // namespace ko_player::details
