#pragma once

#include "support/ChildProcess.h"

#include <string>
#include <utility>
#include <vector>

namespace mediaworker::test {

/// The environment of a test program and of all that it starts: the same on every machine, whatever the
/// desktop, the sound or the proxy there are, and what its user has configured. What is there is changed, and
/// not put back: make one when the program begins, before Qt and threads. Its folder goes with it.
///
/// On Windows desktops there is less to change: what a Linux around Wine is told by the variables stays.
class OwnEnvironment {
public:
    OwnEnvironment();

    /// A home that nobody has written to; in it "temp" for those who want it as the system's temporary
    /// directory.
    [[nodiscard]] const TemporaryFolder& home() const noexcept { return home_; }

    /// What was taken away or replaced by the newest of these, as it was: for tools of others that their user
    /// has configured (package managers).
    [[nodiscard]] static const std::vector<std::pair<std::string, std::string>>& ofTheUser();

private:
    const TemporaryFolder home_;
};

} // namespace mediaworker::test
