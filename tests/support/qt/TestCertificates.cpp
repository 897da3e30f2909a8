#include "support/qt/TestCertificates.h"

#include "support/MountNamespace.h"

#include <exception>

namespace mediaworker::test {
namespace {

/// Where Qt and OpenSSL look on Debian: both the hashed names and the bundle are in there.
constexpr const char* kSystemFolder = "/etc/ssl/certs";

} // namespace

TestCertificates::TestCertificates(const std::vector<std::string>& hostNames) {
    std::string names = "IP:127.0.0.1";
    for (const std::string& name : hostNames) {
        names += ",DNS:" + name;
    }
    const std::string authorityKey = (folder_ / "ca.key").string();
    const std::string request = (folder_ / "server.csr").string();
    const std::string extensions = (folder_ / "server.ext").string();
    writeFile(extensions, "basicConstraints=CA:FALSE\nsubjectAltName=" + names + "\n");
    const std::vector<std::string> newKey = {"-newkey", "ec",   "-pkeyopt", "ec_paramgen_curve:prime256v1",
                                             "-nodes",  "-subj"};
    const auto openssl = [&](const std::vector<std::string>& head, const std::vector<std::string>& tail) {
        std::vector<std::string> command = {"openssl"};
        command.insert(command.end(), head.begin(), head.end());
        command.insert(command.end(), tail.begin(), tail.end());
        runCommand(command);
    };
    std::vector<std::string> authority = {"req", "-x509", "-days", "2"};
    authority.insert(authority.end(), newKey.begin(), newKey.end());
    openssl(authority,
            {"/CN=Authority of a test", "-keyout", authorityKey, "-out", authorityFile().string()});
    std::vector<std::string> server = {"req", "-new"};
    server.insert(server.end(), newKey.begin(), newKey.end());
    openssl(server, {"/CN=Server of a test", "-keyout", keyFile().string(), "-out", request});
    openssl({"x509", "-req", "-days", "2", "-in", request, "-CA", authorityFile().string(), "-CAkey",
             authorityKey, "-CAcreateserial"},
            {"-extfile", extensions, "-out", certificateFile().string()});
}

PrivateCertificates::PrivateCertificates(const TestCertificates& certificates) {
    const std::string authority = readFile(certificates.authorityFile());
    writeFile(folder_ / "authority.pem", authority);
    writeFile(folder_ / "ca-certificates.crt", authority);
    // A relative link, which still holds where the folder is shown.
    std::string hash =
        runCommand({"openssl", "x509", "-noout", "-hash", "-in", certificates.authorityFile().string()});
    hash.erase(hash.find_last_not_of('\n') + 1);
    std::filesystem::create_symlink("authority.pem", folder_.path() / (hash + ".0"));
}

std::vector<std::string> PrivateCertificates::commandPrefix() const {
    std::vector<std::string> command = inMountNamespace(scratch_.path());
    command.insert(command.end(), {"sh", "-c", R"(mount --bind "$0" "$1" && shift && exec "$@")",
                                   folder_.path().string(), kSystemFolder});
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
