#pragma once

namespace ko_player::ff_wrap {

/// Sends FFmpeg's own messages through the process's log, a whole line at a time: by default FFmpeg writes a
/// line in several pieces, which would mix with the lines of other threads. Call once, before any thread uses
/// FFmpeg.
void installFfmpegLog() noexcept;

} // namespace ko_player::ff_wrap
