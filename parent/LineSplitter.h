#pragma once

#include <QByteArray>

#include <functional>

namespace mediaworker::parent {

/// Cuts a byte stream into lines with bounded memory: a line that exceeds the bound is handed out in pieces.
/// Not thread-safe.
class LineSplitter {
public:
    /// Longer lines are cut. The longest that a worker writes have some hundred bytes.
    static constexpr int kMaxLineBytes = 64 * 1024;

    /// Receives a line without its newline (and without a carriage return before it).
    using Sink = std::function<void(const QByteArray& line)>;

    /// Takes what arrived, and hands out every line that ends in it.
    void feed(const QByteArray& bytes, const Sink& sink);

    /// Hands out what stands behind the last newline, if anything: some last words end without one.
    void finish(const Sink& sink);

private:
    void append(const char* bytes, int size, const Sink& sink);

    QByteArray line_;
};

} // namespace mediaworker::parent
