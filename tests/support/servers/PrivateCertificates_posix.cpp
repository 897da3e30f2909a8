#include "support/MountNamespace.h"
#include "support/servers/TestCertificates.h"

#include <exception>

namespace mediaworker::test {
namespace {

/// Where Qt and OpenSSL look on Debian: both the hashed names and the bundle are in there.
constexpr const char* kSystemFolder = "/etc/ssl/certs";

} // namespace

struct PrivateCertificates::State {
    TemporaryFolder folder;
    TemporaryFolder scratch; ///< of the mount namespace
};

PrivateCertificates::PrivateCertificates(const TestCertificates& certificates)
    : state_(std::make_unique<State>()) {
    const TemporaryFolder& folder = state_->folder;
    const std::string authority = readFile(certificates.authorityFile());
    writeFile(folder / "authority.pem", authority);
    writeFile(folder / "ca-certificates.crt", authority);
    // A relative link, which still holds where the folder is shown.
    std::string hash =
        runCommand({"openssl", "x509", "-noout", "-hash", "-in", certificates.authorityFile().string()});
    hash.erase(hash.find_last_not_of('\n') + 1);
    std::filesystem::create_symlink("authority.pem", folder.path() / (hash + ".0"));
}

PrivateCertificates::~PrivateCertificates() = default;

std::vector<std::string> PrivateCertificates::commandPrefix() const {
    std::vector<std::string> command = inMountNamespace(state_->scratch.path());
    command.insert(command.end(), {"sh", "-c", R"(mount --bind "$0" "$1" && shift && exec "$@")",
                                   state_->folder.path().string(), kSystemFolder});
    return command;
}

std::optional<std::string> PrivateCertificates::obstacle() const {
    std::vector<std::string> command = commandPrefix();
    command.emplace_back("true");
    try {
        runCommand(command);
        return std::nullopt;
    } catch (const std::exception& error) {
        return error.what();
    }
}

} // namespace mediaworker::test
