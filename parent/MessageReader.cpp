#include "parent/MessageReader.h"

#include <QtEndian>

namespace mediaworker::parent {

void MessageReader::feed(const QByteArray& bytes) {
    buffer_.remove(0, consumed_);
    consumed_ = 0;
    buffer_.append(bytes);
}

std::optional<Message> MessageReader::next() {
    if (bufferedBytes() < kHeaderBytes) {
        return std::nullopt;
    }
    const char* const header = buffer_.constData() + consumed_;
    const auto type = static_cast<std::uint8_t>(header[0]);
    const int size = qFromLittleEndian<quint16>(header + 1);
    if (bufferedBytes() < kHeaderBytes + size) {
        return std::nullopt;
    }
    const QByteArray data = QByteArray::fromRawData(header + kHeaderBytes, size);
    consumed_ += kHeaderBytes + size;
    return decodePacket(type, data);
}

} // namespace mediaworker::parent
