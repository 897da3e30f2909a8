#pragma once

#include "records/Options.h"

#include <cstdint>
#include <optional>

namespace ko_player {

/// Decides from the stream's time what the parent hears of an export, and when it has gone on long enough.
class ExportProgress {
public:
    /// How much longer than asked for the stream may be. A server that honours the range ends before.
    static constexpr std::int64_t kToleranceMs = 10'000;

    /// `durationMs` is the length asked for. Without a positive one there is no progress. With
    /// LengthPolicy::Exact it is never over: the recorder knows the first picture that is too much.
    explicit ExportProgress(int durationMs, LengthPolicy length = LengthPolicy::Expected)
        : durationMs_(durationMs), length_(length) {}

    struct Step {
        bool isOver = false;        ///< the recording is to be finished
        std::optional<int> percent; ///< to be told to the parent, 0 to 100
    };

    /// Takes the largest time stamp (milliseconds, not negative) that the stream has had. A percentage is
    /// told when it has changed; beyond the end each further one is told as 100 again.
    [[nodiscard]] Step update(std::int64_t dtsMs);

    /// All of it is recorded: what is to be told, if it has not been told yet.
    [[nodiscard]] std::optional<int> complete();

    [[nodiscard]] int durationMs() const noexcept { return durationMs_; }
    /// Where the recording is to end, milliseconds from its first picture; empty: where the stream does.
    [[nodiscard]] std::optional<std::int64_t> exactEndMs() const;

private:
    int durationMs_;
    LengthPolicy length_;
    std::int32_t last_ = 0; ///< percent, not clamped
};

} // namespace ko_player
