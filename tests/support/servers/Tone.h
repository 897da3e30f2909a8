#pragma once

#include <cstdint>
#include <span>

namespace mediaworker::test {

/// The amplitude of one frequency (Goertzel), 1 is full scale.
[[nodiscard]] double toneLevel(std::span<const std::int16_t> samples, int rate, double hz);

/// The same of a tone that is not in step from beginning to end: the median of pieces of 50 ms.
[[nodiscard]] double steadyToneLevel(std::span<const std::int16_t> samples, int rate, double hz);

/// Root of the mean square, 1 is full scale (a full sine has 0.707).
[[nodiscard]] double rms(std::span<const std::int16_t> samples);

/// The strongest frequency between 50 Hz and half the rate or 5 kHz, to about `rate / samples` Hz; 0 for
/// silence.
[[nodiscard]] double dominantFrequency(std::span<const std::int16_t> samples, int rate);

} // namespace mediaworker::test
