#include "support/servers/PulseServer.h"

#include <cstdlib>
#include <stdexcept>

namespace mediaworker::test {
namespace {

/// Set by wine_with_sound.
constexpr const char* kPidVariable = "MEDIAWORKER_TEST_SOUND_PID";

std::string serverPid() {
    const char* const pid = std::getenv(kPidVariable);
    if (pid == nullptr) {
        throw std::runtime_error("PulseServer: run this test by tests/support/servers/wine_with_sound");
    }
    return pid;
}

} // namespace

PulseServer::PulseServer(std::filesystem::path folder) : folder_(std::move(folder)) {
    expectToRun();
}

PulseServer::~PulseServer() = default;

std::vector<std::pair<std::string, std::string>> PulseServer::environment() const {
    return {};
}

void PulseServer::expectToRun() {
    runCommand({"sh", "-c", "kill -0 " + serverPid()});
}

void PulseServer::kill() {
    runCommand({"sh", "-c", "kill -KILL " + serverPid()});
}

} // namespace mediaworker::test
