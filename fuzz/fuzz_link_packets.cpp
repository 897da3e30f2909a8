// The bytes of the link between worker and parent. The first byte chooses how the rest is cut into pieces;
// the messages must be those of a plain reading of the whole.

#include "ipc/PacketReader.h"

#include <QIODevice>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

using Corvane::Ipc::Message;
using Corvane::Ipc::PacketReader;

/// A socket that has received so much and no more.
class Received final : public QIODevice {
public:
    Received() { open(QIODevice::ReadOnly | QIODevice::Unbuffered); }

    void arrive(const std::uint8_t* data, std::size_t size) {
        bytes_.append(reinterpret_cast<const char*>(data), static_cast<int>(size));
    }
    [[nodiscard]] bool isSequential() const override { return true; }
    [[nodiscard]] qint64 bytesAvailable() const override {
        return bytes_.size() + QIODevice::bytesAvailable();
    }

protected:
    qint64 readData(char* data, qint64 maxSize) override {
        const int count = static_cast<int>(std::min<qint64>(maxSize, bytes_.size()));
        std::copy_n(bytes_.constData(), count, data);
        bytes_.remove(0, count);
        return count;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    QByteArray bytes_;
};

std::vector<Message> readPlainly(const std::uint8_t* data, std::size_t size) {
    std::vector<Message> messages;
    Message message;
    std::size_t offset = 0;
    while (size - offset >= 3) {
        message.type = data[offset];
        message.size = static_cast<quint16>(data[offset + 1] | data[offset + 2] << 8);
        offset += 3;
        if (size - offset < message.size) {
            break;
        }
        if (message.size > 0) { // an empty packet keeps the data of the one before
            message.data = QByteArray(reinterpret_cast<const char*>(data + offset), message.size);
            offset += message.size;
        }
        messages.push_back(message);
    }
    return messages;
}

std::vector<Message> readInPieces(const std::uint8_t* data, std::size_t size, std::size_t pieceSize) {
    std::vector<Message> messages;
    Received source;
    PacketReader reader;
    for (std::size_t offset = 0; offset < size; offset += pieceSize) {
        source.arrive(data + offset, std::min(pieceSize, size - offset));
        while (true) {
            const auto outcome = reader.read(source);
            if (outcome == PacketReader::Outcome::NeedMore) {
                break;
            }
            if (outcome != PacketReader::Outcome::Complete) {
                std::abort();
            }
            messages.push_back(reader.message());
        }
    }
    return messages;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::size_t pieceSize = std::size_t{1} + data[0];
    if (readInPieces(data + 1, size - 1, pieceSize) != readPlainly(data + 1, size - 1)) {
        std::abort();
    }
    return 0;
}
