#include "SyncRun.h"

#include "support/servers/Sweep.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <stdexcept>

namespace mediaworker::test {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

std::vector<std::pair<std::string, std::string>>
withOptions(std::vector<std::pair<std::string, std::string>> environment, const std::string& options) {
    environment.emplace_back("MEDIAWORKER_OPTIONS", options);
    return environment;
}

double quantile(std::vector<double> values, double share) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(std::lround(share * static_cast<double>(values.size() - 1)))];
}

} // namespace

SyncRun::SyncRun(const std::string& options)
    : session_({.environment = withOptions(sink_.environment(), options), .readsPictures = false}) {}

void SyncRun::start(const std::string& url) {
    sink_.startRecording();
    session_.start(url);
    if (!session_.waitForFrames(1)) {
        throw std::runtime_error("no picture: " + session_.logText());
    }
}

void SyncRun::pauseFor(std::chrono::milliseconds duration) {
    static_cast<void>(session_.worker().pause());
    session_.listen(duration);
    static_cast<void>(session_.worker().resume());
}

void SyncRun::finish(double codecDelayMs) {
    const auto samples = sink_.stopRecording();
    const Clock::time_point began = sink_.recordingBegan();
    for (const Heard& heard : readSweep(samples, PulseSink::kRate)) {
        Reading reading;
        reading.when = began + std::chrono::duration_cast<Clock::duration>(Milliseconds(heard.atMs));
        reading.isSilent = heard.isSilent;
        double stampMs = 0;
        if (heard.sweepMs >= 0 && pictureAt(reading.when, stampMs)) {
            reading.hasOffset = true;
            reading.offsetMs = nearestSweepMs(stampMs - heard.sweepMs - codecDelayMs);
        }
        readings_.push_back(reading);
    }
}

bool SyncRun::pictureAt(Clock::time_point when, double& stampMs) const {
    constexpr auto kLongest = std::chrono::milliseconds(250);
    const auto& shown = session_.shown();
    const auto next = std::upper_bound(shown.begin(), shown.end(), when,
                                       [](Clock::time_point time, const Shown& s) { return time < s.when; });
    if (next == shown.begin() || when - (next - 1)->when > kLongest) {
        return false;
    }
    const Shown& picture = *(next - 1);
    stampMs = static_cast<double>(picture.ptsMs) + Milliseconds(when - picture.when).count();
    return true;
}

SyncRun::Measured SyncRun::measure(Clock::time_point from, Clock::time_point to) const {
    Measured result;
    std::vector<double> offsets;
    std::size_t inside = 0;
    std::size_t all = 0;
    Clock::time_point lastSound = from;
    for (const Reading& reading : readings_) {
        if (reading.when < from || reading.when >= to) {
            continue;
        }
        ++all;
        if (reading.isSilent) {
            result.longestGap = std::max(result.longestGap, Milliseconds(reading.when - lastSound).count());
        } else {
            lastSound = reading.when;
        }
        if (reading.hasOffset) {
            offsets.push_back(reading.offsetMs);
            inside += reading.offsetMs >= kEarliestMs && reading.offsetMs <= kLatestMs ? 1 : 0;
        }
    }
    result.readings = offsets.size();
    result.median = quantile(offsets, 0.5);
    result.low = quantile(offsets, 0.05);
    result.high = quantile(offsets, 0.95);
    result.insideShare = all == 0 ? 0 : static_cast<double>(inside) / static_cast<double>(all);
    constexpr std::size_t kSide = 5; // 0.1 s before and after
    for (std::size_t i = kSide; i + kSide <= offsets.size(); ++i) {
        const auto at = offsets.begin() + static_cast<std::ptrdiff_t>(i);
        const double before = quantile({at - kSide, at}, 0.5);
        const double after = quantile({at, at + kSide}, 0.5);
        result.largestJump = std::max(result.largestJump, std::abs(after - before));
    }
    return result;
}

std::string SyncRun::course(Clock::time_point from, Clock::time_point to) const {
    std::ostringstream text;
    constexpr auto kStep = std::chrono::milliseconds(500);
    for (auto at = from; at < to; at += kStep) {
        const Measured part = measure(at, at + kStep);
        text << (part.readings == 0 ? "-" : std::to_string(std::lround(part.median))) << ' ';
    }
    return text.str();
}

} // namespace mediaworker::test
