#include "flv/FlatBuffer.h"

#include <gmock/gmock.h>

#include <numeric>
#include <stdexcept>
#include <vector>

namespace ko_player::flv {
namespace {

using testing::ElementsAre;

std::vector<std::uint8_t> counting(std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

void push(FlatBuffer& buffer, const std::vector<std::uint8_t>& bytes) {
    buffer.push(bytes.data(), bytes.size());
}

std::vector<std::uint8_t> unread(const FlatBuffer& buffer) {
    return {buffer.unread().begin(), buffer.unread().end()};
}

template <class Action>
void expectOutOfRange(Action action, const char* text) {
    try {
        action();
        FAIL() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), text);
    }
}

TEST(FlatBuffer, StartsEmpty) {
    const FlatBuffer buffer(10);
    EXPECT_TRUE(buffer.empty());
    EXPECT_TRUE(buffer.unread().empty());
    EXPECT_EQ(buffer.capacity(), 0U);
}

TEST(FlatBuffer, GivesBackWhatWasPushedInOrder) {
    FlatBuffer buffer(100);
    push(buffer, {1, 2, 3});
    push(buffer, {});
    buffer.push(nullptr, 0);
    push(buffer, {4, 5});
    EXPECT_THAT(unread(buffer), ElementsAre(1, 2, 3, 4, 5));
    buffer.consume(2);
    EXPECT_THAT(unread(buffer), ElementsAre(3, 4, 5));
    push(buffer, {6});
    EXPECT_THAT(unread(buffer), ElementsAre(3, 4, 5, 6));
}

TEST(FlatBuffer, HoldsUpToItsMaximumAndRefusesMoreUnchanged) {
    FlatBuffer buffer(4);
    push(buffer, {1, 2, 3, 4});
    expectOutOfRange([&] { push(buffer, {5}); }, "FlatBuffer.push gt maxSize");
    EXPECT_THAT(unread(buffer), ElementsAre(1, 2, 3, 4));
    buffer.consume(1);
    push(buffer, {5});
    EXPECT_THAT(unread(buffer), ElementsAre(2, 3, 4, 5));
}

TEST(FlatBuffer, RefusesALengthThatWouldOverflowTheSum) {
    FlatBuffer buffer(4);
    push(buffer, {1});
    const std::uint8_t byte = 0;
    expectOutOfRange([&] { buffer.push(&byte, SIZE_MAX); }, "FlatBuffer.push gt maxSize");
    expectOutOfRange([&] { buffer.requireRoom(SIZE_MAX); }, "FlatBuffer.push gt maxSize");
    EXPECT_NO_THROW(buffer.requireRoom(3));
}

TEST(FlatBuffer, RefusesToConsumeMoreThanIsUnread) {
    FlatBuffer buffer(10);
    push(buffer, {1, 2, 3});
    buffer.consume(1);
    expectOutOfRange([&] { buffer.consume(3); }, "FlatBuffer.consume gt size");
    EXPECT_THAT(unread(buffer), ElementsAre(2, 3));
    buffer.consume(2);
    expectOutOfRange([&] { buffer.consume(1); }, "FlatBuffer.consume gt size");
    EXPECT_NO_THROW(buffer.consume(0));
}

TEST(FlatBuffer, StartsOverOnceAllIsConsumed) {
    FlatBuffer buffer(100'000);
    push(buffer, counting(50'000));
    buffer.consume(49'999);
    EXPECT_EQ(buffer.readOffset(), 49'999U);
    buffer.consume(1);
    EXPECT_EQ(buffer.readOffset(), 0U);
    EXPECT_TRUE(buffer.empty());
}

TEST(FlatBuffer, CompactsOnPushOnceMoreThanTheLimitIsConsumed) {
    FlatBuffer buffer(100'000);
    push(buffer, counting(20'000));
    buffer.consume(FlatBuffer::kCompactAfterBytes);
    push(buffer, {1});
    EXPECT_EQ(buffer.readOffset(), FlatBuffer::kCompactAfterBytes) << "exactly the limit stays";
    buffer.consume(1);
    EXPECT_EQ(buffer.readOffset(), FlatBuffer::kCompactAfterBytes + 1) << "consuming never moves bytes";
    const auto before = unread(buffer);
    push(buffer, {2});
    EXPECT_EQ(buffer.readOffset(), 0U);
    auto expected = before;
    expected.push_back(2);
    EXPECT_EQ(unread(buffer), expected);
}

TEST(FlatBuffer, KeepsBytesWhenItGrowsAndCompactsAtOnce) {
    FlatBuffer buffer(1'000'000);
    push(buffer, counting(30'000));
    buffer.consume(20'000);
    const auto before = unread(buffer);
    const auto more = counting(200'000);
    push(buffer, more);
    auto expected = before;
    expected.insert(expected.end(), more.begin(), more.end());
    EXPECT_EQ(unread(buffer), expected);
    EXPECT_EQ(buffer.readOffset(), 0U);
}

TEST(FlatBuffer, KeepsLittleMemoryForLife) {
    FlatBuffer buffer(5'000'000);
    push(buffer, counting(4'000'000));
    buffer.consume(3'999'999);
    EXPECT_GE(buffer.capacity(), 4'000'000U) << "nothing moves";
    buffer.consume(1);
    EXPECT_EQ(buffer.capacity(), 0U);
    const auto usual = counting(100'000);
    push(buffer, usual);
    EXPECT_EQ(unread(buffer), usual);
    const std::size_t capacity = buffer.capacity();
    buffer.consume(usual.size());
    EXPECT_EQ(buffer.capacity(), capacity) << "what is usual stays";
}

TEST(FlatBuffer, HoldsLittleMoreMemoryThanItsMaximum) {
    constexpr std::size_t kMax = 100'000;
    FlatBuffer buffer(kMax);
    const auto piece = counting(777);
    for (int round = 0; round < 1000; ++round) {
        while (buffer.unread().size() + piece.size() <= kMax) {
            push(buffer, piece);
        }
        buffer.consume(static_cast<std::size_t>(round) * 31 % kMax % buffer.unread().size());
    }
    EXPECT_LE(buffer.capacity(), kMax + FlatBuffer::kCompactAfterBytes);
}

} // namespace
} // namespace ko_player::flv
