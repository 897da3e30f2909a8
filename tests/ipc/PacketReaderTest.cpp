#include "ipc/PacketReader.h"

#include <QIODevice>

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using Corvane::Ipc::Message;
using Corvane::Ipc::PacketReader;
using Outcome = PacketReader::Outcome;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What a socket is to the reader: bytes that have arrived, and reads that may give less than was announced.
class FakeSocket final : public QIODevice {
public:
    FakeSocket() { open(QIODevice::ReadOnly | QIODevice::Unbuffered); }

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return arrived.size() + announcedTooMuch; }

    QByteArray arrived;
    int announcedTooMuch = 0;

protected:
    qint64 readData(char* data, qint64 maxSize) override {
        const auto size = std::min<qint64>(maxSize, arrived.size());
        std::copy_n(arrived.begin(), size, data);
        arrived.remove(0, static_cast<int>(size));
        return size;
    }
    qint64 writeData(const char*, qint64) override { return -1; }
};

std::string text(const Message& message) {
    return std::to_string(message.type) + "/" + std::to_string(message.size) + "/" +
           message.data.toHex().toStdString();
}

class PacketReaderTest : public ::testing::Test {
protected:
    Outcome arrive(const QByteArray& hex) {
        socket.arrived += QByteArray::fromHex(hex);
        const Outcome outcome = reader.read(socket);
        if (outcome == Outcome::Complete) {
            messages.push_back(text(reader.message()));
        }
        return outcome;
    }

    FakeSocket socket;
    PacketReader reader;
    std::vector<std::string> messages;
};

TEST_F(PacketReaderTest, ReadsTypeSizeAndData) {
    arrive("050400"
           "64000000");
    EXPECT_THAT(messages, ElementsAre("5/4/64000000"));
}

TEST_F(PacketReaderTest, ReadsTheSizeLittleEndian) {
    arrive("fe"
           "0201" +
           QByteArray(258, 'x').toHex());
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(reader.message().size, 258);
    EXPECT_EQ(reader.message().data, QByteArray(258, 'x'));
}

TEST_F(PacketReaderTest, ReadsTheLargestPacket) {
    arrive("01ffff" + QByteArray(65535, 'y').toHex());
    EXPECT_EQ(reader.message().data, QByteArray(65535, 'y'));
}

TEST_F(PacketReaderTest, TakesNothingOfAHeaderBeforeItIsWhole) {
    EXPECT_EQ(arrive("05"), Outcome::NeedMore);
    EXPECT_EQ(arrive("04"), Outcome::NeedMore);
    EXPECT_EQ(socket.arrived.size(), 2);
    EXPECT_EQ(arrive("00"), Outcome::NeedMore);
    EXPECT_EQ(socket.arrived.size(), 0);
}

TEST_F(PacketReaderTest, CompletesAPacketThatArrivesByteByByte) {
    for (const char* byte : {"05", "04", "00", "64", "00", "00"}) {
        EXPECT_EQ(arrive(byte), Outcome::NeedMore);
    }
    EXPECT_EQ(arrive("00"), Outcome::Complete);
    EXPECT_THAT(messages, ElementsAre("5/4/64000000"));
}

TEST_F(PacketReaderTest, LooksAtAFurtherPacketOnlyWhenMoreBytesArrive) {
    arrive("060000"
           "070000");
    EXPECT_THAT(messages, ElementsAre("6/0/"));
    arrive("09");
    EXPECT_THAT(messages, ElementsAre("6/0/", "7/0/"));
    arrive("0000");
    EXPECT_THAT(messages, ElementsAre("6/0/", "7/0/", "9/0/"));
}

TEST_F(PacketReaderTest, PacketWithoutDataCarriesTheDataBeforeItAlong) {
    arrive("050400"
           "64000000");
    arrive("060000");
    arrive("050000");
    EXPECT_THAT(messages, ElementsAre("5/4/64000000", "6/0/64000000", "5/0/64000000"));
}

TEST_F(PacketReaderTest, HeaderThatGivesLessThanAnnouncedIsLostAndTheNextOneRead) {
    socket.announcedTooMuch = 2;
    EXPECT_EQ(arrive("05"), Outcome::HeaderLost);
    socket.announcedTooMuch = 0;
    EXPECT_EQ(arrive("060000"), Outcome::Complete);
    EXPECT_THAT(messages, ElementsAre("6/0/"));
}

TEST_F(PacketReaderTest, DataThatGiveLessThanAnnouncedAreLostAndAHeaderIsNext) {
    socket.announcedTooMuch = 1;
    EXPECT_EQ(arrive("050400"
                     "640000"),
              Outcome::DataLost);
    EXPECT_THAT(messages, IsEmpty());
    socket.announcedTooMuch = 0;
    EXPECT_EQ(arrive("050100"
                     "07"),
              Outcome::Complete);
    EXPECT_THAT(messages, ElementsAre("5/1/07"));
}

} // namespace
