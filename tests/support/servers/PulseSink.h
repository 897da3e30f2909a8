#pragma once

#include "support/ChildProcess.h"
#include "support/servers/PulseServer.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
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
};

} // namespace mediaworker::test
