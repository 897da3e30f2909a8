#pragma once

#include <sstream>
#include <string>
#include <string_view>

namespace base {

/// Receives complete log text. Implementations must be thread-safe.
class LogSink {
public:
    LogSink() = default;
    LogSink(const LogSink&) = delete;
    LogSink& operator=(const LogSink&) = delete;
    virtual ~LogSink() = default;

    /// `text` is one whole line with its newline, or the text of `logWithoutNewline`.
    virtual void write(std::string_view text) = 0;
};

/// Redirects the log, for tests; null restores standard error. Returns the sink that was in place.
/// Thread-safe.
LogSink* exchangeLogSink(LogSink* sink) noexcept;

/// Hands `text` as it is to the sink, or to standard error in one write. Thread-safe.
void writeLogText(std::string_view text) noexcept;

/// Writes one line made of the pieces, as an output stream formats them. The line is composed whole before it
/// is written, so lines of different threads never mix. Thread-safe.
template <class... Pieces>
void logLine(const Pieces&... pieces) {
    std::ostringstream line;
    (line << ... << pieces);
    line << '\n';
    writeLogText(line.str());
}

/// Writes a located line: the qualified function name, ": ", then the pieces. Thread-safe.
template <class... Pieces>
void logAt(std::string_view function, const Pieces&... pieces) {
    logLine(function, ": ", pieces...);
}

/// For the few texts that end a process in the middle of a line.
template <class... Pieces>
void logWithoutNewline(const Pieces&... pieces) {
    std::ostringstream text;
    (text << ... << pieces);
    writeLogText(text.str());
}

} // namespace base
