#pragma once

#include "Session.h"
#include "support/servers/PulseSink.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace mediaworker::test {

/// The real worker playing a stream whose sound tells its own time (see Sweep.h), recorded where it is heard.
class SyncRun {
public:
    /// `options` is what the worker gets as MEDIAWORKER_OPTIONS.
    explicit SyncRun(const std::string& options);

    /// Starts recorder and worker, and waits for the first picture. Throws std::runtime_error without one.
    void start(const std::string& url);
    [[nodiscard]] Session& session() { return session_; }
    void pauseFor(std::chrono::milliseconds duration);

    /// Ends the recording, for what follows. `codecDelayMs` is by how much the encoder's sound is later than
    /// its stamps say.
    void finish(double codecDelayMs);

    /// A time span of the sound against the pictures, in milliseconds. Positive: sound is late.
    struct Measured {
        std::size_t readings = 0; ///< one for each 20 ms that were heard
        double median = 0;
        double low = 0;         ///< a twentieth is below
        double high = 0;        ///< a twentieth is above
        double insideShare = 0; ///< within -45 .. +125, of the time span
        double longestGap = 0;  ///< silence
        double largestJump = 0; ///< forward or back, where sound goes on without a gap
    };
    [[nodiscard]] Measured measure(Clock::time_point from, Clock::time_point to) const;
    /// Of the span's every half second: for people who look into it.
    [[nodiscard]] std::string course(Clock::time_point from, Clock::time_point to) const;

private:
    struct Reading {
        Clock::time_point when;
        bool isSilent = false;
        bool hasOffset = false;
        double offsetMs = 0;
    };
    [[nodiscard]] bool pictureAt(Clock::time_point when, double& stampMs) const;

    PulseSink sink_;
    Session session_;
    std::vector<Reading> readings_;
};

/// What no ear and eye notice (ITU-R BT.1359).
inline constexpr double kEarliestMs = -45;
inline constexpr double kLatestMs = 125;

} // namespace mediaworker::test
