#include "support/servers/Sweep.h"

#include "support/servers/Tone.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <sstream>
#include <string_view>

namespace mediaworker::test {
namespace {

constexpr double kFirstHz = 500;
constexpr double kHzPerSecond = 250;
constexpr double kLastHz = kFirstHz + kHzPerSecond * kSweepMs / 1000;
constexpr double kHopMs = 20;
constexpr double kWindowMs = 40;
constexpr double kSilence = 0.02; ///< root of the mean square

/// The mean pitch, from the places where the wave rises through zero; 0 where these are not evenly spaced, as
/// across a cut.
double pitch(std::span<const std::int16_t> samples, int rate) {
    std::vector<double> rises;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        const double before = samples[i - 1];
        const double after = samples[i];
        if (before < 0 && after >= 0) {
            rises.push_back(static_cast<double>(i) - after / (after - before));
        }
    }
    if (rises.size() < 8) {
        return 0;
    }
    const double period = (rises.back() - rises.front()) / static_cast<double>(rises.size() - 1);
    for (std::size_t i = 1; i < rises.size(); ++i) {
        if (std::abs(rises[i] - rises[i - 1] - period) > period / 5) {
            return 0;
        }
    }
    return rate / period;
}

} // namespace

std::string sweepWave() {
    std::ostringstream wave;
    const double seconds = kSweepMs / 1000;
    const std::string_view comma = "\\,"; // a bare one ends a filter's argument
    wave << "sin(2*PI*(" << kFirstHz << "*mod(t" << comma << seconds << ")+" << kHzPerSecond / 2 << "*mod(t"
         << comma << seconds << ")*mod(t" << comma << seconds << ")))";
    return wave.str();
}

std::vector<Heard> readSweep(std::span<const std::int16_t> samples, int rate) {
    const auto window = static_cast<std::size_t>(rate * kWindowMs / 1000);
    const auto hop = static_cast<std::size_t>(rate * kHopMs / 1000);
    std::vector<Heard> result;
    for (std::size_t at = 0; at + window <= samples.size(); at += hop) {
        const auto piece = samples.subspan(at, window);
        Heard heard;
        heard.atMs = (static_cast<double>(at) + static_cast<double>(window) / 2) * 1000 / rate;
        heard.isSilent = rms(piece.subspan(window / 4, window / 2)) < kSilence;
        const double hz = rms(piece) < kSilence ? 0 : pitch(piece, rate);
        if (hz >= kFirstHz - 1 && hz <= kLastHz + 1) {
            heard.sweepMs = std::clamp((hz - kFirstHz) * 1000 / kHzPerSecond, 0.0, kSweepMs);
        }
        result.push_back(heard);
    }
    return result;
}

double nearestSweepMs(double ms) {
    return std::remainder(ms, kSweepMs);
}

} // namespace mediaworker::test
