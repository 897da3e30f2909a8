#pragma once

#include <QByteArray>

#include <cstdint>
#include <variant>

/// The packets of the link, as the parent sees them: one byte type, two bytes size (little-endian), the data.
namespace mediaworker::parent {

/// Packet types; both directions share the numbers.
enum class MessageType : std::uint8_t {
    Connected = 0,
    Frame = 1,
    Fragment = 2,
    AbsoluteTime = 3,
    Format = 4,
    Volume = 5,
    Pause = 6,
    Resume = 7,
    Progress = 8,
    StopAudio = 9,
    Finish = 10, ///< to an export: close the file and end
};

/// The worker has connected.
struct Connected {
    qint64 pid = 0; ///< process id as the worker sees it
    friend bool operator==(const Connected&, const Connected&) = default;
};

/// A picture was written into the frame channel and its time has come.
struct FrameShown {
    qint64 ptsMs = 0; ///< time stamp of the stream, milliseconds
    friend bool operator==(const FrameShown&, const FrameShown&) = default;
};

/// The stream told where the current archive fragment lies; units are the stream's.
struct Fragment {
    qint64 position = 0; ///< where the fragment begins
    qint64 duration = 0; ///< how long it is
    friend bool operator==(const Fragment&, const Fragment&) = default;
};

/// The stream told its absolute time; the unit is the stream's.
struct AbsoluteTime {
    qint64 value = 0; ///< usually milliseconds since 1970
    friend bool operator==(const AbsoluteTime&, const AbsoluteTime&) = default;
};

/// The frame channel has a new picture size.
struct FormatChanged {
    friend bool operator==(const FormatChanged&, const FormatChanged&) = default;
};

/// Export mode only: how much of the requested length is recorded.
struct Progress {
    int percent = 0; ///< 0 to 100
    friend bool operator==(const Progress&, const Progress&) = default;
};

/// A packet that is none of the above: an unknown type, a size that its type cannot have, or a value out of
/// range. It has been skipped.
struct Malformed {
    int type = 0; ///< 0 to 255
    int size = 0; ///< bytes of data, 0 to 65535
    friend bool operator==(const Malformed&, const Malformed&) = default;
};

/// One packet from a worker, understood.
using Message =
    std::variant<Connected, FrameShown, Fragment, AbsoluteTime, FormatChanged, Progress, Malformed>;

/// Type and size, in front of the data.
inline constexpr int kHeaderBytes = 3;
/// What the size field can say at most.
inline constexpr int kMaxDataBytes = 0xFFFF;

/// The bytes of one packet. `data` longer than kMaxDataBytes cannot be framed and gives an empty array.
[[nodiscard]] QByteArray encodePacket(MessageType type, const QByteArray& data = {});

/// The bytes of the volume command.
[[nodiscard]] QByteArray encodeVolume(std::uint32_t percent);

/// What the data of a packet of that type says.
[[nodiscard]] Message decodePacket(std::uint8_t type, const QByteArray& data);

} // namespace mediaworker::parent
