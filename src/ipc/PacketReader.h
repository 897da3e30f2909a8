#pragma once

#include "ipc/Message.h"

class QIODevice;

namespace Corvane::Ipc {

/// Turns the bytes of the link into messages: type (8 bits), size (16 bits, little-endian), data. Needs no
/// event loop, so any device that reads will do. Not thread-safe.
class PacketReader {
public:
    static constexpr qint64 kHeaderBytes = 3;

    enum class Outcome {
        NeedMore,   ///< the packet is not complete yet; what was there of it is kept or left in the source
        Complete,   ///< message() is the packet
        HeaderLost, ///< the source gave less than it had announced
        DataLost,
    };

    /// To be called once for each time that the source reports new bytes. Completes at most one packet: a
    /// further one that has already arrived is not looked at before the next report.
    [[nodiscard]] Outcome read(QIODevice& source);

    /// The packet that was completed last. One of size 0 still holds the data of the one before that had any.
    [[nodiscard]] const Message& message() const { return incoming_; }

private:
    Message incoming_;
    bool waitingForHeader_ = true;
};

} // namespace Corvane::Ipc
