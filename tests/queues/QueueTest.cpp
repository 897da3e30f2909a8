#include "queues/Queue.h"
#include "support/ManualClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

namespace ko_player::details {
namespace {

using mediaworker::test::ManualClock;
using std::chrono::seconds;

TEST(Queue, KeepsOrder) {
    Queue<int> queue(3);
    EXPECT_TRUE(queue.push(1));
    EXPECT_TRUE(queue.push(2));
    EXPECT_EQ(queue.tryPop(), 1);
    EXPECT_EQ(queue.waitPop(), 2);
    EXPECT_EQ(queue.tryPop(), std::nullopt);
}

TEST(Queue, AFullQueueBlocksThePushUntilOneIsTaken) {
    Queue<int> queue(4);
    for (int i = 1; i <= 4; ++i) {
        ASSERT_TRUE(queue.push(i));
    }
    auto fifth = std::async(std::launch::async, [&] { return queue.push(5); });
    EXPECT_EQ(queue.size(), 4U);
    EXPECT_EQ(queue.tryPop(), 1);
    EXPECT_TRUE(fifth.get());
    EXPECT_EQ(queue.size(), 4U);
}

TEST(Queue, ReplacingDropsTheOldest) {
    Queue<int> queue(2);
    queue.pushReplacing(1);
    queue.pushReplacing(2);
    queue.pushReplacing(3);
    EXPECT_EQ(queue.size(), 2U);
    EXPECT_EQ(queue.tryPop(), 2);
    EXPECT_EQ(queue.tryPop(), 3);
}

TEST(Queue, ClosedTakesAndGivesNothing) {
    Queue<int> queue(2);
    ASSERT_TRUE(queue.push(1));
    queue.close();
    EXPECT_FALSE(queue.push(2));
    queue.pushReplacing(3);
    EXPECT_EQ(queue.size(), 1U);
    EXPECT_EQ(queue.tryPop(), std::nullopt);
    EXPECT_EQ(queue.waitPop(), std::nullopt);
}

TEST(Queue, AbortedIsDrained) {
    Queue<int> queue(2);
    ASSERT_TRUE(queue.push(1));
    ASSERT_TRUE(queue.push(2));
    queue.abort();
    EXPECT_FALSE(queue.push(3));
    queue.pushReplacing(3);
    EXPECT_EQ(queue.tryPop(), 1);
    EXPECT_EQ(queue.waitPop(), 2);
    EXPECT_EQ(queue.waitPop(), std::nullopt);
    EXPECT_TRUE(queue.isEnded());
}

TEST(Queue, EndingWakesBothSides) {
    for (const bool close : {true, false}) {
        Queue<int> full(1);
        ASSERT_TRUE(full.push(1));
        auto writer = std::async(std::launch::async, [&] { return full.push(2); });
        Queue<int> empty(1);
        auto reader = std::async(std::launch::async, [&] { return empty.waitPop(); });
        for (Queue<int>* queue : {&full, &empty}) {
            close ? queue->close() : queue->abort();
        }
        EXPECT_FALSE(writer.get());
        EXPECT_EQ(reader.get(), std::nullopt);
    }
}

TEST(Queue, TakesTheFrontOnlyIfItSuits) {
    Queue<int> queue(3);
    ASSERT_TRUE(queue.push(5));
    ASSERT_TRUE(queue.push(1));
    const auto small = [](int value) { return value < 3; };
    EXPECT_EQ(queue.tryPopIf(small), std::nullopt) << "only the front counts";
    EXPECT_EQ(queue.tryPop(), 5);
    EXPECT_EQ(queue.tryPopIf(small), 1);
}

TEST(Queue, TakesTheFirstThatSuitsFromAnywhere) {
    Queue<int> queue(4);
    for (const int element : {5, 1, 2, 6}) {
        queue.pushReplacing(element);
    }
    const auto small = [](int element) { return element < 3; };
    EXPECT_EQ(queue.tryTakeFirst(small), 1);
    EXPECT_EQ(queue.tryTakeFirst(small), 2);
    EXPECT_EQ(queue.tryTakeFirst(small), std::nullopt);
    EXPECT_EQ(queue.tryPop(), 5) << "the others stay in order";
    queue.pushReplacing(1);
    queue.close();
    EXPECT_EQ(queue.tryTakeFirst(small), std::nullopt);
}

/// Each number is as many bytes.
Queue<int>::ByteBound sumUpTo(std::size_t most) {
    return {.most = most, .bytesOf = [](const int& element) { return static_cast<std::size_t>(element); }};
}

TEST(Queue, WaitsForRoomForTheBytesOfAnElement) {
    Queue<int> queue(10, sumUpTo(100));
    ASSERT_TRUE(queue.push(60));
    ASSERT_TRUE(queue.push(40));
    auto waiting = std::async(std::launch::async, [&] { return queue.push(50); });
    EXPECT_EQ(queue.tryPop(), 60);
    EXPECT_TRUE(waiting.get());
    EXPECT_EQ(queue.tryPop(), 40);
    EXPECT_EQ(queue.tryPop(), 50);
    EXPECT_EQ(queue.size(), 0U);
}

TEST(Queue, TakesAnElementOfAnySizeWhenEmpty) {
    Queue<int> queue(10, sumUpTo(100));
    ASSERT_TRUE(queue.push(1000));
    auto waiting = std::async(std::launch::async, [&] { return queue.push(1); });
    EXPECT_EQ(queue.tryPop(), 1000);
    EXPECT_TRUE(waiting.get());
}

TEST(Queue, ReplacingDropsTheOldestUntilTheNewestFits) {
    Queue<int> queue(10, sumUpTo(100));
    for (const int element : {30, 31, 32, 90}) {
        queue.pushReplacing(element);
    }
    EXPECT_EQ(queue.tryPop(), 90);
    EXPECT_EQ(queue.tryPop(), std::nullopt);
}

TEST(Queue, AWaitEndsAtItsDeadline) {
    ManualClock clock;
    Queue<int> queue(1);
    auto why = NoElement::Ended;
    auto waiting = std::async(std::launch::async,
                              [&] { return queue.waitPopUntil(clock, clock.now() + seconds(3), why); });
    clock.waitForWaiters(1);
    clock.advance(seconds(3));
    EXPECT_EQ(waiting.get(), std::nullopt);
    EXPECT_EQ(why, NoElement::TimedOut);
}

TEST(Queue, AWaitEndsWithAnElementOrTheQueue) {
    ManualClock clock;
    Queue<int> queue(1);
    auto why = NoElement::TimedOut;
    const auto deadline = clock.now() + seconds(3);
    auto first = std::async(std::launch::async, [&] { return queue.waitPopUntil(clock, deadline, why); });
    clock.waitForWaiters(1);
    ASSERT_TRUE(queue.push(9));
    EXPECT_EQ(first.get(), 9);

    auto second = std::async(std::launch::async, [&] { return queue.waitPopUntil(clock, deadline, why); });
    clock.waitForWaiters(1);
    queue.abort();
    EXPECT_EQ(second.get(), std::nullopt);
    EXPECT_EQ(why, NoElement::Ended);
}

} // namespace
} // namespace ko_player::details
