#pragma once

#include "support/ChildProcess.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace mediaworker::test {

/// A live server of others: Node-Media-Server, from the npm registry, on free ports of 127.0.0.1.
class LiveServer {
public:
    /// Installs it below the build folder when it is needed for the first time. Throws MissingTool when there
    /// is no npm, or it cannot get the packages; std::runtime_error when the server does not come up.
    LiveServer();

    /// Sends a film in real time, as a camera does, from now on until its end.
    void publish(const std::filesystem::path& film);
    /// Where viewers get it.
    [[nodiscard]] std::string url() const;
    /// What the server has got of it so far: its own record, as FLV.
    [[nodiscard]] std::filesystem::path record() const;

private:
    void start(const std::filesystem::path& installed);

    TemporaryFolder folder_;
    std::unique_ptr<ChildProcess> server_;
    std::unique_ptr<ChildProcess> publisher_;
    std::uint16_t rtmpPort_ = 0;
    std::uint16_t httpPort_ = 0;
};

} // namespace mediaworker::test
