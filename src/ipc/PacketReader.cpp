#include "ipc/PacketReader.h"

#include <QIODevice>

namespace Corvane::Ipc {

PacketReader::Outcome PacketReader::read(QIODevice& source) {
    if (waitingForHeader_) {
        if (source.bytesAvailable() < kHeaderBytes) {
            return Outcome::NeedMore;
        }
        char header[kHeaderBytes];
        if (source.read(header, kHeaderBytes) != kHeaderBytes) {
            return Outcome::HeaderLost;
        }
        incoming_.type = static_cast<quint8>(header[0]);
        incoming_.size = qFromLittleEndian<quint16>(header + 1);
        if (incoming_.size == 0) {
            return Outcome::Complete;
        }
        waitingForHeader_ = false;
    }
    if (source.bytesAvailable() < incoming_.size) {
        return Outcome::NeedMore;
    }
    waitingForHeader_ = true;
    incoming_.data = source.read(incoming_.size);
    return incoming_.data.size() == incoming_.size ? Outcome::Complete : Outcome::DataLost;
}

} // namespace Corvane::Ipc
