#pragma once

#include "support/ChildProcess.h"
#include "support/servers/PulseServer.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace mediaworker::test {

/// A sound server of our own whose only device swallows what is played and can be recorded: no hardware and
/// no other test is involved. Not thread-safe.
class PulseSink {
public:
    static constexpr int kRate = 44100;

    /// Returns once clients can play. Throws std::runtime_error when the server does not come up.
    PulseSink();
    ~PulseSink();

    /// For a program that is to play here.
    [[nodiscard]] std::vector<std::pair<std::string, std::string>> environment() const;

    /// Returns once samples (silence counts) arrive.
    void startRecording();
    /// What was played since, mono, at kRate.
    [[nodiscard]] std::vector<std::int16_t> stopRecording();
    /// When the first sample of the last recording was played, to about 15 ms. Call after stopRecording().
    [[nodiscard]] std::chrono::steady_clock::time_point recordingBegan() const;
    /// What is played in the next time.
    [[nodiscard]] std::vector<std::int16_t> record(std::chrono::milliseconds duration);

    /// How many streams are playing now.
    [[nodiscard]] int playingStreams() const;

    /// Ends the server, as when the device is pulled.
    void kill();

private:
    TemporaryFolder folder_;
    PulseServer server_;
    std::unique_ptr<ChildProcess> recorder_;

    /// Notes how the recording grows.
    void watch(const std::stop_token& stop);

    std::vector<double> beginsMs_; ///< watcher's own while it runs: when it began, as each look tells
    std::jthread watcher_;
};

} // namespace mediaworker::test
