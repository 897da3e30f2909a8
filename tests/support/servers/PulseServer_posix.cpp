#include "support/servers/PulseServer.h"

#include <stdexcept>

namespace mediaworker::test {

PulseServer::PulseServer(std::filesystem::path folder) : folder_(std::move(folder)) {
    process_ = std::make_unique<ChildProcess>(ChildProcess::Options{
        .command = {"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--disable-shm=yes", "-L",
                    "module-native-protocol-unix", "-L", "module-null-sink sink_name=test"},
        .environment = environment(),
        .errors = folder_ / "server.log"});
}

PulseServer::~PulseServer() = default;

std::vector<std::pair<std::string, std::string>> PulseServer::environment() const {
    const std::string folder = folder_.string();
    return {{"XDG_RUNTIME_DIR", folder},
            {"PULSE_RUNTIME_PATH", folder + "/pulse"},
            {"HOME", folder},
            {"XDG_CONFIG_HOME", folder},
            {"PULSE_SERVER", "unix:" + folder + "/pulse/native"},
            {"DBUS_SESSION_BUS_ADDRESS", "disabled:"}};
}

void PulseServer::expectToRun() {
    if (!process_->isRunning()) {
        throw std::runtime_error("PulseServer: it ended: " + readFile(folder_ / "server.log"));
    }
}

void PulseServer::kill() {
    process_->kill();
    process_->wait();
}

} // namespace mediaworker::test
