#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QtEndian>

namespace Corvane::Ipc {

/// The types of both directions share one numbering.
namespace message_type {
inline constexpr quint8 kConnected = 0;    ///< to parent: signed 64-bit process id
inline constexpr quint8 kFrame = 1;        ///< to parent: signed 64-bit time stamp of the picture
inline constexpr quint8 kFragment = 2;     ///< to parent: signed 64-bit position, signed 64-bit duration
inline constexpr quint8 kAbsoluteTime = 3; ///< to parent: signed 64-bit time
inline constexpr quint8 kFormat = 4;       ///< to parent: no data; the picture size has changed
inline constexpr quint8 kVolume = 5;       ///< from parent: unsigned 32-bit percent
inline constexpr quint8 kPause = 6;        ///< from parent: no data
inline constexpr quint8 kResume = 7;       ///< from parent: no data
inline constexpr quint8 kProgress = 8;     ///< to parent: signed 32-bit percent
inline constexpr quint8 kStopAudio = 9;    ///< from parent: no data
inline constexpr quint8 kFinish = 10;      ///< from the parent of an export: no data; close the file and end
} // namespace message_type

/// One packet of the link between worker and parent.
struct Message {
    quint8 type = 0;
    quint16 size = 0; ///< bytes of data on the wire; a received packet of size 0 may carry older data
    QByteArray data;

    friend bool operator==(const Message& a, const Message& b) {
        return a.type == b.type && a.size == b.size && a.data == b.data;
    }
};

/// A message whose data are the values, little-endian, one after the other.
template <class... Values>
[[nodiscard]] Message makeMessage(quint8 type, Values... values) {
    Message message;
    message.type = type;
    const auto append = [&message](auto value) {
        char bytes[sizeof(value)];
        qToLittleEndian(value, bytes);
        message.data.append(bytes, static_cast<int>(sizeof(value)));
    };
    (append(values), ...);
    static_assert((sizeof(Values) + ... + 0U) <= 0xFFFFU);
    message.size = static_cast<quint16>(message.data.size());
    return message;
}

} // namespace Corvane::Ipc

Q_DECLARE_METATYPE(Corvane::Ipc::Message)
