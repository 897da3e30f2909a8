#pragma once

#include "Roles.h"
#include "Usage.h"
#include "parent/WorkerProcess.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace mediaworker::soak {

/// What all parts of a run share.
struct Run {
    std::chrono::steady_clock::time_point begin;
    std::chrono::steady_clock::time_point end;
    std::string server; ///< "http://127.0.0.1:PORT"
    QMap<QString, QString> environment;

    [[nodiscard]] double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }
    [[nodiscard]] bool isOver() const { return std::chrono::steady_clock::now() >= end; }
};

/// What one stream's parent saw.
struct Seen {
    std::uint64_t workers = 0;
    std::uint64_t shown = 0; ///< pictures announced
    std::uint64_t read = 0;  ///< of these, read from the frame file
    std::uint64_t malformed = 0;
    std::map<std::string, std::uint64_t> ends; ///< by code, or "killed"
    std::vector<std::string> failures;         ///< ends that must not be, with the worker's last words
    Growth growth;                             ///< the largest of all its workers that lived long enough
    double peakMb = 0;
};

/// The parent of one stream, with one worker after the other, on a thread of its own with an event loop.
class Viewer {
public:
    Viewer(std::size_t stream, const Run& run);

    /// To the end of the run; ends the last worker then.
    void watch();

    [[nodiscard]] const Seen& seen() const { return seen_; }

private:
    void start();
    void tick();
    void act();
    void command();
    void onFrame();
    void onFinished(int code, bool crashed);
    void closeLife();
    int between(int least, int most) { return std::uniform_int_distribution<int>(least, most)(random_); }
    [[nodiscard]] double actAfter();

    const std::size_t stream_;
    const Role role_;
    const Run& run_;
    std::mt19937 random_;
    parent::WorkerProcess worker_;
    Seen seen_;
    std::vector<Usage> usage_; ///< of the present worker
    double nextAct_ = 0;       ///< seconds of the run
    double nextSample_ = 0;
    bool isPaused_ = false;
    bool isEnding_ = false; ///< the link was closed by this side
    bool wasKilled_ = false;
};

} // namespace mediaworker::soak
