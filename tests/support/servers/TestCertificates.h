#pragma once

#include "support/ChildProcess.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mediaworker::test {

/// A certificate authority of our own and a server certificate signed by it, made by the openssl program in a
/// temporary folder. Throws std::runtime_error when that fails. Immutable.
class TestCertificates {
public:
    /// The server's certificate is good for these host names and for 127.0.0.1.
    explicit TestCertificates(const std::vector<std::string>& hostNames = {"localhost"});

    [[nodiscard]] std::filesystem::path authorityFile() const { return folder_ / "ca.pem"; }
    [[nodiscard]] std::filesystem::path certificateFile() const { return folder_ / "server.pem"; }
    [[nodiscard]] std::filesystem::path keyFile() const { return folder_ / "server.key"; }

private:
    TemporaryFolder folder_;
};

/// Runs a program so that it finds our authority, and only that, among the system's: in a mount namespace of
/// its own whose folder of trusted certificates is another. Nothing outside the program sees a change.
///
/// On Windows there is no such thing: from commandPrefix() on until this goes, the user trusts our authority.
class PrivateCertificates {
public:
    explicit PrivateCertificates(const TestCertificates& certificates);
    PrivateCertificates(const PrivateCertificates&) = delete;
    PrivateCertificates& operator=(const PrivateCertificates&) = delete;
    ~PrivateCertificates();

    /// Goes before the program and its arguments. The program keeps the process id.
    [[nodiscard]] std::vector<std::string> commandPrefix() const;

    /// Why this cannot work here (it takes the rights of root); empty when it can.
    [[nodiscard]] std::optional<std::string> obstacle() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace mediaworker::test
