#include "parent/CommandQueue.h"

#include <gtest/gtest.h>

#include <deque>

using namespace mediaworker::parent;
using std::chrono::milliseconds;

namespace {

constexpr std::uint8_t kVolume = 5;
constexpr std::uint8_t kPause = 6;
constexpr std::uint8_t kResume = 7;

QByteArray pausePacket() {
    return QByteArray::fromHex("060000");
}
QByteArray resumePacket() {
    return QByteArray::fromHex("070000");
}
QByteArray stopAudioPacket() {
    return QByteArray::fromHex("090000");
}

class CommandQueueTest : public ::testing::Test {
protected:
    QByteArray take() { return queue_.take(now_); }
    void advance(milliseconds by) { now_ += by; }
    void advanceToDeadline() { now_ = queue_.deadline().value(); }

    CommandQueue queue_;
    CommandQueue::TimePoint now_{};
};

/// A worker as it reads: one packet per notification at most, whatever lies behind it.
class OnePacketReader {
public:
    /// Bytes that arrive together cause one notification. Returns the type that was carried out, or nothing.
    std::optional<std::uint8_t> arrive(const QByteArray& bytes) {
        if (bytes.isEmpty()) {
            return std::nullopt;
        }
        buffer_ += bytes;
        if (!header_) {
            if (buffer_.size() < 3) {
                return std::nullopt;
            }
            header_ =
                Header{static_cast<std::uint8_t>(buffer_[0]),
                       static_cast<std::uint8_t>(buffer_[1]) | static_cast<std::uint8_t>(buffer_[2]) << 8};
            buffer_.remove(0, 3);
        }
        if (buffer_.size() < header_->size) {
            return std::nullopt;
        }
        data_ = buffer_.left(header_->size);
        buffer_.remove(0, header_->size);
        const std::uint8_t type = header_->type;
        header_.reset();
        return type;
    }
    [[nodiscard]] const QByteArray& lastData() const { return data_; }

private:
    struct Header {
        std::uint8_t type;
        int size;
    };
    QByteArray buffer_;
    QByteArray data_;
    std::optional<Header> header_;
};

} // namespace

TEST_F(CommandQueueTest, HasNothingToWriteAtFirst) {
    EXPECT_TRUE(take().isEmpty());
    EXPECT_FALSE(queue_.deadline());
}

TEST_F(CommandQueueTest, WritesTheFirstCommandAtOnce) {
    EXPECT_TRUE(queue_.pushPause());
    EXPECT_EQ(take(), pausePacket());
    EXPECT_TRUE(take().isEmpty());
}

TEST_F(CommandQueueTest, WritesTheNextOnlyAfterTheAcknowledgement) {
    EXPECT_TRUE(queue_.pushPause());
    EXPECT_TRUE(queue_.pushResume());
    EXPECT_TRUE(queue_.pushStopAudio());
    EXPECT_EQ(take(), pausePacket());
    EXPECT_TRUE(take().isEmpty());
    queue_.acknowledged(kPause);
    EXPECT_EQ(take(), resumePacket());
    queue_.acknowledged(kResume);
    EXPECT_EQ(take(), stopAudioPacket());
}

TEST_F(CommandQueueTest, IgnoresAcknowledgementsOfOtherCommands) {
    EXPECT_TRUE(queue_.pushPause());
    EXPECT_TRUE(queue_.pushResume());
    EXPECT_EQ(take(), pausePacket());
    queue_.acknowledged(kVolume);
    EXPECT_TRUE(take().isEmpty());
}

TEST_F(CommandQueueTest, ANewerVolumeReplacesOneThatWaits) {
    EXPECT_TRUE(queue_.pushPause());
    EXPECT_EQ(take(), pausePacket());
    EXPECT_TRUE(queue_.pushVolume(10));
    EXPECT_TRUE(queue_.pushVolume(20));
    EXPECT_TRUE(queue_.pushVolume(30));
    EXPECT_EQ(queue_.waiting(), 1U);
    queue_.acknowledged(kPause);
    EXPECT_EQ(take(), encodeVolume(30));
}

TEST_F(CommandQueueTest, KeepsTheOrderOfVolumesAroundAnotherCommand) {
    EXPECT_TRUE(queue_.pushVolume(10));
    EXPECT_TRUE(queue_.pushStopAudio());
    EXPECT_TRUE(queue_.pushVolume(20));
    EXPECT_EQ(take(), encodeVolume(10));
    queue_.acknowledged(kVolume);
    EXPECT_EQ(take(), stopAudioPacket());
    queue_.acknowledged(9);
    EXPECT_EQ(take(), encodeVolume(20));
}

TEST_F(CommandQueueTest, ReplacesNoCommandButTheVolume) {
    EXPECT_TRUE(queue_.pushPause());
    EXPECT_TRUE(queue_.pushPause());
    EXPECT_TRUE(queue_.pushResume());
    EXPECT_EQ(queue_.waiting(), 3U);
}

TEST_F(CommandQueueTest, DoesNotReplaceAVolumeThatWasWritten) {
    EXPECT_TRUE(queue_.pushVolume(10));
    EXPECT_EQ(take(), encodeVolume(10));
    EXPECT_TRUE(queue_.pushVolume(20));
    queue_.acknowledged(kVolume);
    EXPECT_EQ(take(), encodeVolume(20));
}

TEST_F(CommandQueueTest, RefusesWhenFull) {
    for (std::size_t i = 0; i < CommandQueue::kCapacity; ++i) {
        ASSERT_TRUE(queue_.pushPause());
    }
    EXPECT_FALSE(queue_.pushResume());
    EXPECT_FALSE(queue_.pushVolume(1));
    EXPECT_EQ(queue_.waiting(), CommandQueue::kCapacity);
    EXPECT_FALSE(take().isEmpty());
    EXPECT_TRUE(queue_.pushVolume(1));
    EXPECT_TRUE(queue_.pushVolume(2)) << "replacing needs no room";
}

TEST_F(CommandQueueTest, GoesOnWithoutAcknowledgementAfterTheFallbackTime) {
    EXPECT_TRUE(queue_.pushPause());
    EXPECT_TRUE(queue_.pushVolume(7));
    EXPECT_EQ(take(), pausePacket());
    EXPECT_EQ(queue_.deadline(), now_ + CommandQueue::kFallback);
    advance(CommandQueue::kFallback - milliseconds(1));
    EXPECT_TRUE(take().isEmpty());
    advance(milliseconds(1));
    EXPECT_EQ(take(), encodeVolume(7));
    EXPECT_FALSE(queue_.deadline()) << "nothing waits, so nobody has to wake";
}

TEST_F(CommandQueueTest, WakesAWorkerThatLeftACommandLying) {
    EXPECT_TRUE(queue_.pushPause());
    EXPECT_TRUE(queue_.pushResume());
    EXPECT_EQ(take(), pausePacket());
    advanceToDeadline();
    EXPECT_EQ(take(), resumePacket());
    queue_.acknowledged(kPause);
    EXPECT_EQ(take(), QByteArray::fromHex("05")) << "one byte, which completes nothing";
    EXPECT_TRUE(take().isEmpty());
    queue_.acknowledged(kResume);
    EXPECT_TRUE(take().isEmpty());
}

TEST_F(CommandQueueTest, CompletesTheBegunPacketBeforeTheNextCommand) {
    EXPECT_TRUE(queue_.pushPause());
    EXPECT_TRUE(queue_.pushResume());
    EXPECT_EQ(take(), pausePacket());
    advanceToDeadline();
    EXPECT_EQ(take(), resumePacket());
    queue_.acknowledged(kPause);
    EXPECT_EQ(take(), QByteArray::fromHex("05"));
    queue_.acknowledged(kResume);

    EXPECT_TRUE(queue_.pushStopAudio());
    EXPECT_EQ(take(), QByteArray::fromHex("010000")) << "one byte of data: no volume";
    EXPECT_TRUE(take().isEmpty());
    queue_.acknowledged(kVolume);
    EXPECT_EQ(take(), stopAudioPacket());
}

TEST_F(CommandQueueTest, TakesALaterAcknowledgementForTheEarlierOnesToo) {
    EXPECT_TRUE(queue_.pushPause());
    EXPECT_TRUE(queue_.pushResume());
    EXPECT_EQ(take(), pausePacket());
    advanceToDeadline();
    EXPECT_EQ(take(), resumePacket());
    queue_.acknowledged(kResume);
    EXPECT_TRUE(queue_.pushStopAudio());
    EXPECT_EQ(take(), stopAudioPacket());
}

TEST_F(CommandQueueTest, KeepsItsPaceWhenTheLogIsOutOfSight) {
    for (int i = 0; i < 200; ++i) {
        EXPECT_TRUE(queue_.pushPause());
        EXPECT_EQ(take(), pausePacket());
        advance(CommandQueue::kFallback);
    }
}

TEST_F(CommandQueueTest, ClearForgetsABegunPacket) {
    EXPECT_TRUE(queue_.pushPause());
    EXPECT_TRUE(queue_.pushResume());
    EXPECT_EQ(take(), pausePacket());
    advanceToDeadline();
    EXPECT_EQ(take(), resumePacket());
    queue_.acknowledged(kPause);
    EXPECT_EQ(take(), QByteArray::fromHex("05"));
    queue_.clear();
    EXPECT_TRUE(queue_.pushResume());
    EXPECT_EQ(take(), resumePacket());
}

// A worker whose link thread stood still sees everything that was written meanwhile in one notification.
TEST_F(CommandQueueTest, EveryCommandReachesAWorkerThatStoodStill) {
    for (int frozenTimes = 0; frozenTimes < 12; ++frozenTimes) {
        queue_.clear();
        OnePacketReader worker;
        QByteArray unread;
        std::vector<std::uint8_t> commands;
        std::vector<QByteArray> volumes;
        const auto deliver = [&] {
            if (const auto type = worker.arrive(std::exchange(unread, {}))) {
                queue_.acknowledged(*type);
                if (*type != kVolume) {
                    commands.push_back(*type);
                } else if (worker.lastData().size() == 4) {
                    volumes.push_back(worker.lastData());
                }
            }
        };
        for (int i = 0; i < 4; ++i) {
            EXPECT_TRUE(queue_.pushPause());
            EXPECT_TRUE(queue_.pushResume());
        }
        EXPECT_TRUE(queue_.pushVolume(55));
        const auto frozenUntil = now_ + frozenTimes * CommandQueue::kFallback;
        for (int i = 0; i < 200; ++i) {
            unread += take();
            if (now_ >= frozenUntil) {
                deliver();
            }
            advance(CommandQueue::kFallback / 4);
        }
        EXPECT_EQ(commands, (std::vector<std::uint8_t>{kPause, kResume, kPause, kResume, kPause, kResume,
                                                       kPause, kResume}))
            << "frozen for " << frozenTimes;
        EXPECT_EQ(volumes, std::vector<QByteArray>{encodeVolume(55).mid(3)}) << "frozen for " << frozenTimes;
    }
}
