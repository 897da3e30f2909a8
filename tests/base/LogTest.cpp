#include "base/Log.h"

#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace base {
namespace {

using mediaworker::test::LogCapture;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

/// Keeps each text as it was written.
class Writes final : public LogSink {
public:
    Writes() : previous_(exchangeLogSink(this)) {}
    ~Writes() override { exchangeLogSink(previous_); }
    void write(std::string_view text) override { texts.emplace_back(text); }

    std::vector<std::string> texts;

private:
    LogSink* previous_;
};

TEST(Log, WritesALineAtOnce) {
    const Writes writes;
    logLine("sar: ", 4, "/", 3, ' ', true, ' ', 2.5);
    EXPECT_THAT(writes.texts, ElementsAre("sar: 4/3 1 2.5\n"));
}

TEST(Log, PutsTheFunctionInFrontOfALocatedLine) {
    const Writes writes;
    logAt("ko_player::Player::consume", "consume failed with exception: ", "text");
    logAt("ko_player::Player::consume");
    EXPECT_THAT(writes.texts, ElementsAre("ko_player::Player::consume: consume failed with exception: text\n",
                                          "ko_player::Player::consume: \n"));
}

TEST(Log, LeavesTheNewlineOutWhereAskedTo) {
    const Writes writes;
    logWithoutNewline("exit ", 3);
    EXPECT_THAT(writes.texts, ElementsAre("exit 3"));
}

TEST(Log, GoesToStandardErrorWithoutASink) {
    testing::internal::CaptureStderr();
    logLine("line ", 1);
    logWithoutNewline("rest");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "line 1\nrest");
}

TEST(Log, GivesBackTheSinkThatWasInPlace) {
    Writes outer;
    {
        const LogCapture inner;
        logLine("inner");
        EXPECT_TRUE(inner.contains("inner"));
    }
    logLine("outer");
    EXPECT_THAT(outer.texts, ElementsAre("outer\n"));
}

class FailingSink final : public LogSink {
public:
    void write(std::string_view) override { throw std::runtime_error("disk full"); }
};

TEST(Log, SurvivesASinkThatFails) {
    FailingSink sink;
    LogSink* previous = exchangeLogSink(&sink);
    EXPECT_NO_THROW(logLine("text"));
    EXPECT_EQ(exchangeLogSink(previous), &sink);
}

constexpr int kThreads = 8;
constexpr int kLines = 200;

/// Many threads log lines in pieces; `lines` must be exactly these, whole, in any order.
void logFromManyThreads() {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread] {
            for (int i = 0; i < kLines; ++i) {
                logAt("thread", thread, " line ", i, ' ', std::string(100, static_cast<char>('a' + thread)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void expectAllLinesWhole(const std::vector<std::string>& lines) {
    std::multiset<std::string> missing;
    for (int thread = 0; thread < kThreads; ++thread) {
        for (int i = 0; i < kLines; ++i) {
            missing.insert("thread: " + std::to_string(thread) + " line " + std::to_string(i) + ' ' +
                           std::string(100, static_cast<char>('a' + thread)));
        }
    }
    for (const std::string& line : lines) {
        const auto found = missing.find(line);
        ASSERT_NE(found, missing.end()) << line;
        missing.erase(found);
    }
    EXPECT_THAT(missing, IsEmpty());
}

TEST(Log, NeverMixesLinesOfManyThreads) {
    const LogCapture log;
    logFromManyThreads();
    expectAllLinesWhole(log.lines());
}

TEST(Log, NeverMixesLinesOfManyThreadsOnStandardError) {
    testing::internal::CaptureStderr();
    logFromManyThreads();
    std::istringstream text(testing::internal::GetCapturedStderr());
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    expectAllLinesWhole(lines);
}

} // namespace
} // namespace base
