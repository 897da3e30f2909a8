#include "parent/MessageReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace mediaworker::parent;
using ::testing::ElementsAre;

namespace {

std::vector<Message> drain(MessageReader& reader) {
    std::vector<Message> messages;
    while (auto message = reader.next()) {
        messages.push_back(*message);
    }
    return messages;
}

QByteArray everyMessage() {
    return QByteArray::fromHex("00 0800 3930000000000000"                  // connected, pid 12345
                               "04 0000"                                   // format
                               "01 0800 28000000 00000000"                 // frame at 40 ms
                               "02 1000 e803000000000000 60ea000000000000" // fragment 1000, 60000
                               "03 0800 ffffffffffffffff"                  // absolute time -1
                               "08 0400 32000000"                          // progress 50
                               "c8 0300 010203"                            // type 200
                               "01 0800 50000000 00000000");               // frame at 80 ms
}

std::vector<Message> everyMessageDecoded() {
    return {Connected{12345}, FormatChanged{}, FrameShown{40},    Fragment{1000, 60000},
            AbsoluteTime{-1}, Progress{50},    Malformed{200, 3}, FrameShown{80}};
}

} // namespace

TEST(MessageReader, ReadsEveryMessageInOnePiece) {
    MessageReader reader;
    reader.feed(everyMessage());
    EXPECT_EQ(drain(reader), everyMessageDecoded());
    EXPECT_EQ(reader.bufferedBytes(), 0);
}

TEST(MessageReader, ReadsTheSameAtEverySplit) {
    const QByteArray bytes = everyMessage();
    for (int split = 0; split <= bytes.size(); ++split) {
        MessageReader reader;
        reader.feed(bytes.left(split));
        std::vector<Message> messages = drain(reader);
        reader.feed(bytes.mid(split));
        for (const Message& message : drain(reader)) {
            messages.push_back(message);
        }
        EXPECT_EQ(messages, everyMessageDecoded()) << "split at " << split;
    }
}

TEST(MessageReader, ReadsTheSameByteByByteWithoutDrainingInBetween) {
    MessageReader reader;
    for (const char byte : everyMessage()) {
        reader.feed(QByteArray(1, byte));
    }
    EXPECT_EQ(drain(reader), everyMessageDecoded());
}

TEST(MessageReader, WaitsForTheLastByteOfAMessage) {
    MessageReader reader;
    reader.feed(QByteArray::fromHex("01 0800 28000000 000000"));
    EXPECT_FALSE(reader.next());
    EXPECT_EQ(reader.bufferedBytes(), 10);
    reader.feed(QByteArray(1, '\0'));
    EXPECT_EQ(reader.next(), Message(FrameShown{40}));
}

TEST(MessageReader, KeepsOnlyTheIncompleteMessage) {
    MessageReader reader;
    const QByteArray big = encodePacket(static_cast<MessageType>(77), QByteArray(kMaxDataBytes, 'x'));
    for (int i = 0; i < 50; ++i) {
        reader.feed(big);
        EXPECT_EQ(reader.next(), Message(Malformed{77, kMaxDataBytes}));
        EXPECT_FALSE(reader.next());
        EXPECT_EQ(reader.bufferedBytes(), 0);
    }
}

struct Odd {
    const char* name;
    const char* hex;
    Malformed expected;
};

class OddMessages : public ::testing::TestWithParam<Odd> {};

TEST_P(OddMessages, IsSkippedAndTheNextOneIsRead) {
    MessageReader reader;
    reader.feed(QByteArray::fromHex(GetParam().hex) + QByteArray::fromHex("040000"));
    EXPECT_THAT(drain(reader), ElementsAre(Message(GetParam().expected), Message(FormatChanged{})));
}

INSTANTIATE_TEST_SUITE_P(
    MessageReader, OddMessages,
    ::testing::Values(
        Odd{"ConnectedShort", "00 0400 01000000", {0, 4}}, Odd{"FrameEmpty", "01 0000", {1, 0}},
        Odd{"FrameLong", "01 0900 000000000000000000", {1, 9}},
        Odd{"FragmentHalf", "02 0800 0000000000000000", {2, 8}},
        Odd{"AbsoluteTimeShort", "03 0100 00", {3, 1}}, Odd{"FormatWithData", "04 0100 00", {4, 1}},
        Odd{"VolumeFromWorker", "05 0400 32000000", {5, 4}}, Odd{"PauseFromWorker", "06 0000", {6, 0}},
        Odd{"ResumeFromWorker", "07 0000", {7, 0}}, Odd{"StopAudioFromWorker", "09 0000", {9, 0}},
        Odd{"FinishFromWorker", "0a 0000", {10, 0}}, Odd{"ProgressAbove100", "08 0400 65000000", {8, 4}},
        Odd{"ProgressNegative", "08 0400 ffffffff", {8, 4}}, Odd{"ProgressShort", "08 0200 3200", {8, 2}},
        Odd{"UnknownType", "ff 0000", {255, 0}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(EncodePacket, WritesTypeSizeAndData) {
    EXPECT_EQ(encodePacket(MessageType::Pause), QByteArray::fromHex("060000"));
    EXPECT_EQ(encodeVolume(80), QByteArray::fromHex("05 0400 50000000"));
    EXPECT_EQ(encodePacket(MessageType::Volume, QByteArray(0x0102, 'x')).left(3),
              QByteArray::fromHex("050201"));
}

TEST(EncodePacket, RefusesDataThatCannotBeFramed) {
    EXPECT_EQ(encodePacket(MessageType::Frame, QByteArray(kMaxDataBytes, 'x')).size(), kMaxDataBytes + 3);
    EXPECT_TRUE(encodePacket(MessageType::Frame, QByteArray(kMaxDataBytes + 1, 'x')).isEmpty());
}
