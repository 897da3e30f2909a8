#pragma once

#include "support/ChildProcess.h"

#include <memory>
#include <string>

namespace mediaworker::test {

/// An X server of our own with a screen that nobody sees, and no window manager. Not thread-safe.
class XServer {
public:
    /// Returns once clients can connect. Throws std::runtime_error when the server does not come up.
    explicit XServer(int widthPx = 1920, int heightPx = 1200);
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;
    ~XServer();

    /// The value of the variable DISPLAY.
    [[nodiscard]] const std::string& display() const noexcept { return display_; }

private:
    TemporaryFolder folder_;
    std::unique_ptr<ChildProcess> server_;
    std::string display_;
};

} // namespace mediaworker::test
