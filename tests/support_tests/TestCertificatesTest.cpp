#include "support/servers/TestCertificates.h"
#include "support/ChildProcess.h"
#include "support/servers/HttpServer.h"

#include <gtest/gtest.h>

namespace mediaworker::test {
namespace {

TEST(TestCertificates, AreSignedForTheGivenNames) {
    const TestCertificates certificates({"localhost", "camera.test"});
    for (const char* name : {"localhost", "camera.test"}) {
        const std::string verdict =
            runCommand({"openssl", "verify", "-CAfile", certificates.authorityFile().string(),
                        "-verify_hostname", name, certificates.certificateFile().string()});
        EXPECT_NE(verdict.find(": OK"), std::string::npos) << verdict;
    }
    EXPECT_THROW(runCommand({"openssl", "verify", "-CAfile", certificates.authorityFile().string(),
                             "-verify_hostname", "other.test", certificates.certificateFile().string()}),
                 std::runtime_error);
}

class PrivateCertificatesTest : public testing::Test {
protected:
    void SetUp() override {
        if (const auto obstacle = private_.obstacle()) {
            GTEST_SKIP() << *obstacle;
        }
    }

    std::vector<std::string> inPrivate(std::vector<std::string> command) const {
        std::vector<std::string> result = private_.commandPrefix();
        result.insert(result.end(), command.begin(), command.end());
        return result;
    }

    TestCertificates certificates_;
    PrivateCertificates private_{certificates_};
};

TEST_F(PrivateCertificatesTest, AreTheSystemsForTheProgramOnly) {
    const std::vector<std::string> verify = {"openssl", "verify", certificates_.certificateFile().string()};
    EXPECT_NE(runCommand(inPrivate(verify)).find(": OK"), std::string::npos);
    EXPECT_THROW(runCommand(verify), std::runtime_error);
}

TEST_F(PrivateCertificatesTest, KeepProcessIdAndExitStatus) {
    ChildProcess process({.command = inPrivate({"sh", "-c", "exit 7"})});
    EXPECT_EQ(process.wait(), 7);
    const TemporaryFolder folder;
    ChildProcess named({.command = inPrivate({"sh", "-c", "echo $$"}), .output = folder / "out"});
    EXPECT_EQ(named.wait(), 0);
    EXPECT_EQ(readFile(folder / "out"), std::to_string(named.id()) + "\n");
}

TEST_F(PrivateCertificatesTest, AreFoundByQt) {
    HttpServer server({.certificates = &certificates_});
    server.route("/a", [](HttpResponse& response) { response.send("trusted"); });
    const std::string url = server.url("/a");
    EXPECT_EQ(runCommand(inPrivate({SUPPORT_TEST_FETCHER, url})), "trusted");
    EXPECT_THROW(runCommand({SUPPORT_TEST_FETCHER, url}), std::runtime_error);
}

} // namespace
} // namespace mediaworker::test
