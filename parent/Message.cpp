#include "parent/Message.h"

#include <QtEndian>

namespace mediaworker::parent {

namespace {

template <class Integer>
Integer readAt(const QByteArray& data, int offset) {
    return qFromLittleEndian<Integer>(data.constData() + offset);
}

} // namespace

QByteArray encodePacket(MessageType type, const QByteArray& data) {
    if (data.size() > kMaxDataBytes) {
        return {};
    }
    QByteArray packet(kHeaderBytes, '\0');
    packet[0] = static_cast<char>(type);
    qToLittleEndian(static_cast<quint16>(data.size()), packet.data() + 1);
    return packet + data;
}

QByteArray encodeVolume(std::uint32_t percent) {
    QByteArray data(4, '\0');
    qToLittleEndian(static_cast<quint32>(percent), data.data());
    return encodePacket(MessageType::Volume, data);
}

Message decodePacket(std::uint8_t type, const QByteArray& data) {
    const int size = data.size();
    switch (static_cast<MessageType>(type)) {
    case MessageType::Connected:
        if (size == 8) {
            return Connected{readAt<qint64>(data, 0)};
        }
        break;
    case MessageType::Frame:
        if (size == 8) {
            return FrameShown{readAt<qint64>(data, 0)};
        }
        break;
    case MessageType::Fragment:
        if (size == 16) {
            return Fragment{readAt<qint64>(data, 0), readAt<qint64>(data, 8)};
        }
        break;
    case MessageType::AbsoluteTime:
        if (size == 8) {
            return AbsoluteTime{readAt<qint64>(data, 0)};
        }
        break;
    case MessageType::Format:
        if (size == 0) {
            return FormatChanged{};
        }
        break;
    case MessageType::Progress:
        if (size == 4) {
            const auto percent = readAt<qint32>(data, 0);
            if (percent >= 0 && percent <= 100) {
                return Progress{percent};
            }
        }
        break;
    case MessageType::Volume:
    case MessageType::Pause:
    case MessageType::Resume:
    case MessageType::StopAudio:
    case MessageType::Finish:
        break; // commands: a worker never sends them
    }
    return Malformed{type, size};
}

} // namespace mediaworker::parent
