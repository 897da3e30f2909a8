#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <csignal>
#include <system_error>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

TEST(ChildProcess, GivesExitStatusOrSignal) {
    EXPECT_EQ(ChildProcess({.command = {"sh", "-c", "exit 3"}}).wait(), 3);
    ChildProcess sleeper({.command = {"sleep", "60"}});
    EXPECT_EQ(sleeper.waitFor(10ms), std::nullopt);
    sleeper.signal(SIGTERM);
    EXPECT_EQ(sleeper.wait(), 128 + SIGTERM);
}

TEST(ChildProcess, ReadsWhatIsWrittenToIt) {
    const TemporaryFolder folder;
    ChildProcess cat({.command = {"cat"}, .output = folder / "out", .hasInput = true});
    const std::vector<std::uint8_t> bytes(1'000'000, 'c');
    EXPECT_TRUE(cat.write(bytes));
    cat.closeInput();
    EXPECT_EQ(cat.wait(), 0);
    EXPECT_EQ(readFile(folder / "out").size(), bytes.size());
}

TEST(ChildProcess, WritingToOneThatHasEndedFails) {
    ChildProcess gone({.command = {"true"}, .hasInput = true});
    gone.wait();
    EXPECT_FALSE(gone.write(std::vector<std::uint8_t>(1000)));
}

TEST(ChildProcess, IsKilledWithItsOwner) {
    std::int64_t id = 0;
    {
        const ChildProcess sleeper({.command = {"sleep", "60"}});
        id = sleeper.id();
    }
    EXPECT_EQ(::kill(static_cast<pid_t>(id), 0), -1);
}

TEST(ChildProcess, SaysThatAProgramIsMissing) {
    EXPECT_THROW(ChildProcess({.command = {"no-such-program-here"}}), std::system_error);
}

TEST(ChildProcess, GetsItsOwnEnvironment) {
    EXPECT_EQ(runCommand({"sh", "-c", "echo $HOME$NEW"}, {{"HOME", "here"}, {"NEW", "there"}}),
              "herethere\n");
}

TEST(RunCommand, ThrowsWithTheErrorText) {
    try {
        runCommand({"sh", "-c", "echo why >&2; exit 1"});
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("why"), std::string::npos);
    }
}

} // namespace
} // namespace mediaworker::test
