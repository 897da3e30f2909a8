#include "support/servers/XServer.h"

#include <chrono>
#include <stdexcept>
#include <thread>

#include <csignal>

namespace mediaworker::test {

using namespace std::chrono_literals;

XServer::XServer(int widthPx, int heightPx) {
    const auto numberFile = folder_ / "display";
    // It takes the first free number, and writes it down when it serves. No reset: a server whose last client
    // leaves would begin anew, and lose the next one's first request. No OpenGL, whose drivers differ from
    // machine to machine.
    server_ = std::make_unique<ChildProcess>(
        ChildProcess::Options{.command = {"Xvfb", "-displayfd", "1", "-screen", "0",
                                          std::to_string(widthPx) + "x" + std::to_string(heightPx) + "x24",
                                          "-nolisten", "tcp", "-noreset", "-dpi", "96", "-extension", "GLX"},
                              .output = numberFile,
                              .errors = folder_ / "server.log"});
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    std::string number;
    while (number.empty() || number.back() != '\n') {
        if (!server_->isRunning()) {
            throw std::runtime_error("XServer: the server ended: " + readFile(folder_ / "server.log"));
        }
        if (std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error("XServer: the server does not come up");
        }
        std::this_thread::sleep_for(5ms);
        number = readFile(numberFile);
    }
    number.pop_back();
    display_ = ':';
    display_ += number;
}

// Told, and not killed: it removes its socket and its lock file.
XServer::~XServer() {
    server_->signal(SIGTERM);
    if (!server_->waitFor(5s)) {
        server_->signal(SIGKILL);
        server_->wait();
    }
}

} // namespace mediaworker::test
