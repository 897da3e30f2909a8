#include "support/servers/TestCertificates.h"

namespace mediaworker::test {
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
    openssl(authority, {"/CN=Authority of the test " + folder_.path().filename().string(), "-keyout",
                        authorityKey, "-out", authorityFile().string()});
    std::vector<std::string> server = {"req", "-new"};
    server.insert(server.end(), newKey.begin(), newKey.end());
    openssl(server, {"/CN=Server of a test", "-keyout", keyFile().string(), "-out", request});
    openssl({"x509", "-req", "-days", "2", "-in", request, "-CA", authorityFile().string(), "-CAkey",
             authorityKey, "-CAcreateserial"},
            {"-extfile", extensions, "-out", certificateFile().string()});
}

} // namespace mediaworker::test
