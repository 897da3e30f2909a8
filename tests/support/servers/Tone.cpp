#include "support/servers/Tone.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace mediaworker::test {

double toneLevel(std::span<const std::int16_t> samples, int rate, double hz) {
    if (samples.empty()) {
        return 0;
    }
    const double coefficient = 2 * std::cos(2 * std::numbers::pi * hz / rate);
    double before = 0;
    double beforeThat = 0;
    for (const std::int16_t sample : samples) {
        const double now = sample / 32768.0 + coefficient * before - beforeThat;
        beforeThat = before;
        before = now;
    }
    const double power = before * before + beforeThat * beforeThat - coefficient * before * beforeThat;
    return 2 * std::sqrt(std::max(0.0, power)) / static_cast<double>(samples.size());
}

double steadyToneLevel(std::span<const std::int16_t> samples, int rate, double hz) {
    const auto piece = static_cast<std::size_t>(rate / 20);
    std::vector<double> levels;
    for (; piece > 0 && samples.size() >= piece; samples = samples.subspan(piece)) {
        levels.push_back(toneLevel(samples.first(piece), rate, hz));
    }
    if (levels.empty()) {
        return 0;
    }
    const auto middle = levels.begin() + static_cast<std::ptrdiff_t>(levels.size() / 2);
    std::nth_element(levels.begin(), middle, levels.end());
    return *middle;
}

double rms(std::span<const std::int16_t> samples) {
    double sum = 0;
    for (const std::int16_t sample : samples) {
        sum += sample / 32768.0 * (sample / 32768.0);
    }
    return samples.empty() ? 0 : std::sqrt(sum / static_cast<double>(samples.size()));
}

double dominantFrequency(std::span<const std::int16_t> samples, int rate) {
    // The loudest tenth of a second is enough to find the neighbourhood, all of it to find the place.
    const std::size_t window = std::min(samples.size(), static_cast<std::size_t>(rate / 10));
    auto coarse = samples.first(window);
    for (std::size_t at = 0; at + window <= samples.size() && window > 0; at += window) {
        const auto part = samples.subspan(at, window);
        if (rms(part) > rms(coarse)) {
            coarse = part;
        }
    }
    constexpr double kSilence = 0.001;
    const auto strongest = [rate](std::span<const std::int16_t> part, double from, double to, double step) {
        double best = 0;
        double bestLevel = 0;
        for (double hz = from; hz <= to; hz += step) {
            const double level = toneLevel(part, rate, hz);
            if (level > bestLevel) {
                bestLevel = level;
                best = hz;
            }
        }
        return bestLevel < kSilence ? 0 : best;
    };
    const double rough = strongest(coarse, 50, std::min(5000.0, rate / 2.0), 5);
    return rough > 0 ? strongest(samples, rough - 6, rough + 6, 0.5) : 0;
}

} // namespace mediaworker::test
