#include "stream/FfpStream.h"

#include "OwnTempDir.h"

#include "support/LogCapture.h"

#include <QUuid>

#include <gmock/gmock.h>

#include <optional>

namespace {

using mediaworker::test::LogCapture;
using mediaworker::test::OwnTempDir;
using ::testing::ExitedWithCode;

constexpr auto kStopped = "video thread has stopped";
constexpr auto kUnexpectedly = "video thread has stopped unexpectedly, exit";

class Stream final : public FfpStream {
public:
    using FfpStream::FfpStream;
    using FfpStream::onVideoStopped;
};

/// A stream whose request stays unanswered, since no event loop runs, and that nobody listens to.
class FfpStreamTest : public ::testing::Test {
protected:
    void makeStream() {
        const QString name = QStringLiteral("mw-") + QUuid::createUuid().toString(QUuid::Id128);
        stream.emplace(QStringLiteral("http://127.0.0.1:9/live"), name, name + QStringLiteral("-server"));
    }

    const OwnTempDir tempDir{};
    std::optional<Stream> stream;
};

TEST_F(FfpStreamTest, EndOfThePicturesThatWasAskedForIsNoFailure) {
    LogCapture log;
    makeStream();
    stream.reset();
    EXPECT_EQ(log.count(kStopped), 1);
    EXPECT_FALSE(log.contains(kUnexpectedly));
}

class FfpStreamDeathTest : public FfpStreamTest {
protected:
    FfpStreamDeathTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

TEST_F(FfpStreamDeathTest, EndOfThePicturesThatNobodyAskedForEndsTheProcessWithCode4) {
    EXPECT_EXIT(
        {
            makeStream();
            stream->onVideoStopped();
        },
        ExitedWithCode(4), "\nvideo thread has stopped\nvideo thread has stopped unexpectedly, exit\n$");
}

} // namespace
