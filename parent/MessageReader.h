#pragma once

#include "parent/Message.h"

#include <optional>

namespace mediaworker::parent {

/// Cuts the bytes that arrive from a worker into messages, wherever the stream was split.
///
/// Feed what arrived, then call next() until it returns nothing. A packet holds at most 65,538 bytes, so a
/// reader that is drained after each feed never keeps more than that. Not thread-safe.
class MessageReader {
public:
    /// Takes what arrived, however the stream was split.
    void feed(const QByteArray& bytes);

    /// The next complete message, or nothing until more bytes arrive.
    [[nodiscard]] std::optional<Message> next();

    /// Bytes of a packet that is not complete yet.
    [[nodiscard]] int bufferedBytes() const noexcept { return buffer_.size() - consumed_; }

private:
    QByteArray buffer_;
    int consumed_ = 0; ///< bytes at the front of buffer_ that were handed out; dropped in feed()
};

} // namespace mediaworker::parent
