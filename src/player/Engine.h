#pragma once

namespace ko_player {

/// Sends what FFmpeg itself has to say through the process's log, in whole lines. Call once, before anything
/// else of the engine.
void installEngineLog() noexcept;

/// Loads the codecs, which takes longer than anything else at the start, so that the first packet finds them.
/// A failure shows when a codec is needed. Thread-safe.
void loadCodecs() noexcept;

} // namespace ko_player
