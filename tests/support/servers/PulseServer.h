#pragma once

#include "support/ChildProcess.h"

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace mediaworker::test {

/// A sound server with one sink, "test", which swallows what is played.
///
/// On Windows under Wine it is the one that wine_with_sound started before the test: a program in Wine plays
/// where the environment of that command says, whatever another program in Wine gives it.
class PulseServer {
public:
    /// It may take a while until it answers.
    explicit PulseServer(std::filesystem::path folder);
    PulseServer(const PulseServer&) = delete;
    PulseServer& operator=(const PulseServer&) = delete;
    ~PulseServer();

    /// For a program that is to play or record here.
    [[nodiscard]] std::vector<std::pair<std::string, std::string>> environment() const;

    /// Throws std::runtime_error when it has ended.
    void expectToRun();
    /// Ends it at once.
    void kill();

private:
    std::filesystem::path folder_;
    std::unique_ptr<ChildProcess> process_;
};

} // namespace mediaworker::test
