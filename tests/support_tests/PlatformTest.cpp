#include "support/Platform.h"
#include "support/ChildProcess.h"
#include "support/servers/HttpServer.h"

#include <QFile>
#include <QProcess>

#include <gmock/gmock.h>

namespace mediaworker::test {
namespace {

// What others take for the proof that nothing was left behind must see it where there is something.

TEST(Platform, SeesMappingsOfAFolder) {
    const TemporaryFolder folder;
    QFile file(QString::fromStdString((folder / "mapped").string()));
    ASSERT_TRUE(file.open(QIODevice::ReadWrite) && file.resize(100'000));
    EXPECT_EQ(platform::mappingsOf(folder.path()), 0);
    uchar* const mapping = file.map(0, file.size());
    ASSERT_NE(mapping, nullptr);
    EXPECT_EQ(platform::mappingsOf(folder.path()), 1);
    EXPECT_EQ(platform::mappingsOf(folder / "elsewhere"), 0);
    file.unmap(mapping);
    EXPECT_EQ(platform::mappingsOf(folder.path()), 0);
}

TEST(Platform, SeesChildrenAndWhetherTheyRun) {
    EXPECT_THAT(platform::childProcesses(), testing::IsEmpty());
    HttpServer server;
    server.route("/never", [](HttpResponse& response) { response.waitForClientToLeave(); });
    QProcess child;
    child.start(QStringLiteral(SUPPORT_TEST_FETCHER), {QString::fromStdString(server.url("/never"))});
    ASSERT_TRUE(child.waitForStarted());
    const qint64 pid = child.processId();
    EXPECT_THAT(platform::childProcesses(), testing::Contains(pid));
    EXPECT_TRUE(platform::isRunning(pid));
    child.kill();
    ASSERT_TRUE(child.waitForFinished());
    EXPECT_THAT(platform::childProcesses(), testing::Not(testing::Contains(pid)));
    EXPECT_FALSE(platform::isRunning(pid));
}

TEST(Platform, CountsHandles) {
    const TemporaryFolder folder;
    QFile file(QString::fromStdString((folder / "open").string()));
    const int before = platform::openHandles();
    if (before == 0) {
        GTEST_SKIP() << "Wine does not count handles";
    }
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    EXPECT_EQ(platform::openHandles(), before + 1);
    file.close();
    EXPECT_EQ(platform::openHandles(), before);
}

} // namespace
} // namespace mediaworker::test
