#include "base/Log.h"

#include <atomic>
#include <cstdio>

namespace base {
namespace {

std::atomic<LogSink*> currentSink{nullptr};

} // namespace

LogSink* exchangeLogSink(LogSink* sink) noexcept {
    return currentSink.exchange(sink);
}

void writeLogText(std::string_view text) noexcept {
    try {
        if (LogSink* sink = currentSink.load()) {
            sink->write(text);
            return;
        }
        // Standard error is unbuffered, so one fwrite is one write to the descriptor. A parent that closed
        // its end makes it fail; nothing could be told to anybody then.
        static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));
        static_cast<void>(std::fflush(stderr));
    } catch (...) { // NOLINT(bugprone-empty-catch): a log line that cannot be stored must not end the stream
    }
}

} // namespace base
