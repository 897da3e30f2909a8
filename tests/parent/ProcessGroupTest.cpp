#include "parent/ProcessGroup.h"
#include "support/ChildProcess.h"
#include "support/Platform.h"

#include <QCoreApplication>
#include <QProcess>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

using namespace mediaworker;
using namespace std::chrono_literals;

namespace {

/// Runs until it is ended.
test::ChildProcess::Options idler() {
    return {.command = {FAKE_WORKER, "wait:100000", "c", "s"}};
}

TEST(ProcessGroup, EndsWhatIsInItWhenItGoes) {
    test::ChildProcess child(idler());
    std::optional<parent::ProcessGroup> group(0);
    const bool isIn = group->adopt(child.id());
    EXPECT_EQ(isIn, test::platform::kIsWindows) << "nothing of the kind on POSIX";
    EXPECT_TRUE(child.isRunning());
    group.reset();
    EXPECT_EQ(child.waitFor(isIn ? 20000ms : 100ms).has_value(), isIn);
}

bool comes(const std::function<bool()>& condition) {
    for (const auto end = std::chrono::steady_clock::now() + 20s; !condition();) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

TEST(ProcessGroup, AWorkerThatNeverConnectsDiesWithItsParent) {
    const test::TemporaryFolder folder;
    const auto output = folder / "pid";
    test::ChildProcess starter(
        {.command = {DOOMED_STARTER, FAKE_WORKER, "log:here;wait:100000"}, .output = output});
    ASSERT_TRUE(comes([&] { return test::readText(output).ends_with("\n"); }));
    const std::int64_t worker = std::stoll(test::readText(output));
    EXPECT_GT(test::platform::residentBytes(worker), 0);
    starter.kill();
    EXPECT_TRUE(comes([&] { return test::platform::residentBytes(worker) == 0; }));
}

TEST(ProcessGroup, AWorkerOutlivesTheThreadThatStartedIt) {
    if (test::platform::kIsWindows) {
        GTEST_SKIP() << "Windows asks no thread, and Qt's process stays in its thread there";
    }
    std::unique_ptr<QProcess> process;
    std::thread([&] {
        process.reset(parent::makeMortalProcess(nullptr));
        process->start(QStringLiteral(FAKE_WORKER), {QStringLiteral("wait:300;exit:7")});
        EXPECT_TRUE(process->waitForStarted());
        process->moveToThread(QCoreApplication::instance()->thread());
    }).join();
    EXPECT_TRUE(process->waitForFinished());
    EXPECT_EQ(process->exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process->exitCode(), 7);
}

TEST(ProcessGroup, TakesNobodyWhoIsNotThere) {
    parent::ProcessGroup group(100 << 20);
    EXPECT_FALSE(group.adopt(0));
}

} // namespace
