#pragma once

#include "base/Clock.h"
#include "records/Options.h"

#include <cstdint>
#include <optional>

namespace ko_player {

/// What becomes of an export where the stream's time stands still while data come.
enum class Standstill {
    Endured, ///< it goes on until the response ends
    EndsIt,  ///< it ends when that has lasted for as long as the stream may be
};

/// Decides from the stream's time what the parent hears of an export, and when it has gone on long enough.
class ExportProgress {
public:
    /// How much longer than asked for the stream may be. A server that honours the range ends before.
    static constexpr std::int64_t kToleranceMs = 10'000;

    /// `durationMs` is the length asked for. Without a positive one there is no progress. With
    /// LengthPolicy::Exact it is never over by its length: the recorder knows the first picture that is too
    /// much.
    explicit ExportProgress(int durationMs, LengthPolicy length = LengthPolicy::Expected,
                            Standstill standstill = Standstill::Endured)
        : durationMs_(durationMs), length_(length), standstill_(standstill) {}

    struct Step {
        bool isOver = false;             ///< the recording is to be finished
        bool stoodStill = false;         ///< it is over because the stream's time stands still
        std::optional<int> percent = {}; ///< to be told to the parent, 0 to 100
    };

    /// Takes the largest time stamp (milliseconds, not negative) that the stream has had until `now`. A
    /// percentage is told when it has changed; beyond the end each further one is told as 100 again.
    [[nodiscard]] Step update(std::int64_t dtsMs, base::TimePoint now = {});

    /// All of it is recorded: what is to be told, if it has not been told yet.
    [[nodiscard]] std::optional<int> complete();

    [[nodiscard]] int durationMs() const noexcept { return durationMs_; }
    /// Where the recording is to end, milliseconds from its first picture; empty: where the stream does.
    [[nodiscard]] std::optional<std::int64_t> exactEndMs() const;

private:
    struct Reached {
        std::int64_t dtsMs;
        base::TimePoint when;
    };
    [[nodiscard]] bool hasStoodStill(std::int64_t dtsMs, base::TimePoint now);

    int durationMs_;
    LengthPolicy length_;
    Standstill standstill_;
    std::optional<Reached> reached_; ///< the largest time stamp, and when it came
    std::int32_t last_ = 0;          ///< percent, not clamped
};

} // namespace ko_player
