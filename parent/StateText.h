#pragma once

#include "parent/PlaybackMonitor.h"

#include <QString>

#include <chrono>
#include <optional>

namespace mediaworker::parent {

/// What a stream does, in words without a capital letter or a full stop: "buffering", "ended: the server
/// ended the stream". `problem`: why it ended; `untilNextAttempt`: when it is started again.
[[nodiscard]] QString stateText(PlaybackState state, const QString& problem,
                                const std::optional<std::chrono::milliseconds>& untilNextAttempt);

/// The same for the place of the picture, with a capital letter. Empty where pictures are seen, or nothing
/// plays.
[[nodiscard]] QString overlayText(PlaybackState state, const QString& problem,
                                  const std::optional<std::chrono::milliseconds>& untilNextAttempt);

} // namespace mediaworker::parent
