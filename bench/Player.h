#pragma once

#include "Measures.h"
#include "parent/WorkerProcess.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace mediaworker::bench {

/// Lets the thread's event loop run until `isDone`. False when the time is over first.
bool waitFor(const std::function<bool()>& isDone, std::chrono::seconds limit = std::chrono::seconds(120));

/// One worker that plays, and what it tells. Ends the program when it cannot be started.
class Player {
public:
    struct Shown {
        Clock::time_point when;
        qint64 ptsMs;
    };

    explicit Player(const std::string& url);

    void waitForFrames(std::size_t count);
    void waitForEnd();
    /// Tells the worker to end, and waits for it.
    void end();

    [[nodiscard]] double memory(const std::string& field) const {
        return memoryMb(worker_.processId(), field);
    }
    [[nodiscard]] double peakMb() const { return peakMb_; }
    [[nodiscard]] const std::vector<Shown>& shown() const { return shown_; }
    [[nodiscard]] qint64 processId() const { return worker_.processId(); }
    [[nodiscard]] Clock::time_point started() const { return started_; }
    /// When its first message came.
    [[nodiscard]] Clock::time_point connected() const { return connected_; }

private:
    parent::WorkerProcess worker_;
    std::vector<Shown> shown_;
    std::optional<int> code_;
    double peakMb_ = 0;
    Clock::time_point started_;
    Clock::time_point connected_;
};

} // namespace mediaworker::bench
