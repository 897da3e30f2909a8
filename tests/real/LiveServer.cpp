#include "LiveServer.h"

#include "Workshop.h"
#include "support/FileLock.h"
#include "support/OwnEnvironment.h"

#include <chrono>
#include <regex>
#include <stdexcept>
#include <thread>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

/// The folder with the server's packages, as the lock file beside its package.json names them.
std::filesystem::path install() {
    const std::filesystem::path source = LIVE_SERVER_SOURCE_FOLDER;
    const std::filesystem::path folder = LIVE_SERVER_BUILD_FOLDER;
    std::filesystem::create_directories(folder);
    const FileLock lock(folder / "lock");
    const std::string wanted = readFile(source / "package-lock.json");
    const auto record = folder / "installed";
    std::filesystem::copy_file(source / "server.js", folder / "server.js",
                               std::filesystem::copy_options::overwrite_existing);
    if (std::filesystem::exists(record) && readFile(record) == wanted) {
        return folder;
    }
    for (const char* name : {"package.json", "package-lock.json"}) {
        std::filesystem::copy_file(source / name, folder / name,
                                   std::filesystem::copy_options::overwrite_existing);
    }
    try {
        Workshop::run({"npm", "ci", "--prefix", folder.string(), "--ignore-scripts", "--no-audit",
                       "--no-fund", "--no-update-notifier"},
                      OwnEnvironment::ofTheUser());
    } catch (const MissingTool&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw MissingTool(std::string("the live server cannot be installed: ") + error.what());
    }
    writeFile(record, wanted);
    return folder;
}

} // namespace

LiveServer::LiveServer() {
    const auto installed = install();
    // Somebody may take a port between its choice and its use.
    for (int attempt = 0; attempt < 3 && httpPort_ == 0; ++attempt) {
        start(installed);
    }
    if (httpPort_ == 0) {
        throw std::runtime_error("the live server does not come up: " + readFile(folder_ / "errors"));
    }
}

void LiveServer::start(const std::filesystem::path& installed) {
    try {
        server_ = std::make_unique<ChildProcess>(ChildProcess::Options{
            .command = {"node", (installed / "server.js").string(), (folder_ / "record").string()},
            .output = folder_ / "output",
            .errors = folder_ / "errors"});
    } catch (const std::system_error&) {
        throw MissingTool("node is not installed: scripts/bootstrap --test installs it");
    }
    const std::regex ports(R"re(\{"rtmp":(\d+),"http":(\d+)\}\n)re");
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (server_->isRunning() && std::chrono::steady_clock::now() < deadline) {
        const std::string output = readFile(folder_ / "output");
        std::smatch match;
        if (std::regex_search(output, match, ports)) {
            rtmpPort_ = static_cast<std::uint16_t>(std::stoi(match[1]));
            httpPort_ = static_cast<std::uint16_t>(std::stoi(match[2]));
            return;
        }
        std::this_thread::sleep_for(20ms);
    }
}

void LiveServer::publish(const std::filesystem::path& film) {
    publisher_ = std::make_unique<ChildProcess>(
        ChildProcess::Options{.command = {"ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "error", "-re",
                                          "-i", film.string(), "-c", "copy", "-f", "flv",
                                          "rtmp://127.0.0.1:" + std::to_string(rtmpPort_) + "/live/film"},
                              .errors = folder_ / "publisher"});
}

std::string LiveServer::url() const {
    return "http://127.0.0.1:" + std::to_string(httpPort_) + "/live/film.flv";
}

std::filesystem::path LiveServer::record() const {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_ / "record")) {
        if (entry.path().extension() == ".flv") {
            return entry.path();
        }
    }
    throw std::runtime_error("the live server has got nothing: " + readFile(folder_ / "publisher"));
}

} // namespace mediaworker::test
