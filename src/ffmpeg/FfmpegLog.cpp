#include "ffmpeg/FfmpegLog.h"

#include "base/Log.h"

extern "C" {
#include <libavutil/log.h>
}

#include <array>
#include <cstdarg>
#include <string>

namespace ko_player::ff_wrap {
namespace {

/// A line that never ends must not grow without bound.
constexpr std::size_t kMaxLineBytes = 4096;

void writeLine(void* object, int level, const char* format, va_list arguments) {
    if (level > av_log_get_level()) {
        return;
    }
    // FFmpeg composes a line by several calls; each thread collects its own.
    thread_local std::string line;
    thread_local int printPrefix = 1;
    std::array<char, 1024> piece{};
    const int length =
        av_log_format_line2(object, level, format, arguments, piece.data(), piece.size(), &printPrefix);
    if (length < 0) {
        return;
    }
    line += piece.data();
    if (line.empty() || (line.back() != '\n' && line.size() < kMaxLineBytes)) {
        return;
    }
    if (line.back() != '\n') {
        line += '\n';
    }
    base::writeLogText(line);
    line.clear();
}

} // namespace

void installFfmpegLog() noexcept {
    av_log_set_callback(writeLine);
}

} // namespace ko_player::ff_wrap
