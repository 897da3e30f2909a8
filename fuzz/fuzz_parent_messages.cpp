// What a worker sends to its parent, as the parent's library reads it. The first byte chooses how the rest is
// cut into pieces; the messages must be those of a plain reading of the whole, and no more may be kept than a
// packet holds.

#include "parent/MessageReader.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

using namespace mediaworker::parent;

std::vector<Message> readPlainly(const char* data, std::size_t size) {
    std::vector<Message> messages;
    for (std::size_t offset = 0; size - offset >= kHeaderBytes;) {
        const auto type = static_cast<std::uint8_t>(data[offset]);
        const std::size_t length = static_cast<std::uint8_t>(data[offset + 1]) |
                                   static_cast<std::size_t>(static_cast<std::uint8_t>(data[offset + 2]))
                                       << 8U;
        offset += kHeaderBytes;
        if (size - offset < length) {
            break;
        }
        messages.push_back(decodePacket(type, QByteArray(data + offset, static_cast<int>(length))));
        offset += length;
    }
    return messages;
}

std::vector<Message> readInPieces(const char* data, std::size_t size, std::size_t pieceSize) {
    std::vector<Message> messages;
    MessageReader reader;
    for (std::size_t offset = 0; offset < size; offset += pieceSize) {
        reader.feed(QByteArray(data + offset, static_cast<int>(std::min(pieceSize, size - offset))));
        while (const auto message = reader.next()) {
            if (const auto* progress = std::get_if<Progress>(&*message);
                progress != nullptr && (progress->percent < 0 || progress->percent > 100)) {
                std::abort();
            }
            messages.push_back(*message);
        }
        if (reader.bufferedBytes() > kHeaderBytes + kMaxDataBytes) {
            std::abort();
        }
    }
    return messages;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const auto* data = reinterpret_cast<const char*>(bytes);
    const std::size_t pieceSize = std::size_t{1} + bytes[0];
    if (readInPieces(data + 1, size - 1, pieceSize) != readPlainly(data + 1, size - 1)) {
        std::abort();
    }
    return 0;
}
