#include "stream/StreamBase.h"

#include "OwnTempDir.h"

#include "base/ImmediateExit.h"
#include "parent/FrameChannel.h"
#include "support/LogCapture.h"
#include "support/Platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>
#include <QUuid>
#include <QtEndian>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace {

using namespace std::chrono_literals;
using mediaworker::parent::FrameChannel;
using mediaworker::test::LogCapture;
using mediaworker::test::OwnTempDir;
using mediaworker::test::platform::kIsWindows;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Matcher;
using ::testing::Not;
using ::testing::StartsWith;

template <class Done>
bool waitFor(Done done) {
    QElapsedTimer timer;
    timer.start();
    while (!done() && !timer.hasExpired(10'000)) {
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 20);
    }
    return done();
}

/// Writes down what the parent commands.
class Recorder final : public Ostra::StreamBase {
public:
    Recorder(const QString& channel, const QString& server, bool open = true) : StreamBase(channel, server) {
        if (open) {
            openCommands();
        }
    }
    ~Recorder() override { stopLinkThread(); }

    using StreamBase::drainLink;
    using StreamBase::openCommands;
    using StreamBase::runOnLinkThread;

    void setPause(bool paused) override { add(paused ? "pause" : "resume"); }
    void setVolume(int percent) override { add("volume " + std::to_string(percent)); }
    void stopAudio() override { add("stop audio"); }
    void startAudio() override { add("start audio"); }

    std::vector<std::string> calls() const {
        const std::lock_guard lock(mutex_);
        return calls_;
    }

private:
    void add(const std::string& call) {
        EXPECT_NE(QThread::currentThread(), QCoreApplication::instance()->thread());
        const std::lock_guard lock(mutex_);
        calls_.push_back(call);
    }

    mutable std::mutex mutex_;
    std::vector<std::string> calls_; ///< guarded by mutex_
};

class StreamBaseTest : public ::testing::Test {
protected:
    StreamBaseTest() { server.listen(serverName); }

    /// The parent's end of the link, with the announcement of the process read.
    QLocalSocket* accept() {
        if (!waitFor([&] { return server.hasPendingConnections(); })) {
            return nullptr;
        }
        QLocalSocket* parent = server.nextPendingConnection();
        if (!waitFor([&] { return parent->bytesAvailable() >= 11; })) {
            return nullptr;
        }
        parent->read(11);
        return parent;
    }
    /// Sends commands one by one, each when the one before has been heard.
    void command(QLocalSocket* parent, const QByteArray& hex, LogCapture& log) {
        const auto before = log.lines().size();
        parent->write(QByteArray::fromHex(hex));
        ASSERT_TRUE(waitFor([&] { return log.lines().size() > before; }));
    }

    const OwnTempDir tempDir;
    const QString name = QStringLiteral("mw-") + QUuid::createUuid().toString(QUuid::Id128);
    /// Not the channel's name: a local server's socket is a file of its name in the temporary directory too.
    const QString serverName = name + QStringLiteral("-server");
    const QString path = QDir::tempPath() + QDir::separator() + name;
    QLocalServer server;
};

TEST_F(StreamBaseTest, CarriesOutTheParentsCommandsOnTheLinkThread) {
    LogCapture log;
    Recorder stream(name, serverName);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    command(parent, "05040064000000", log);
    command(parent, "060000", log);
    command(parent, "070000", log);
    command(parent, "090000", log);
    ASSERT_TRUE(waitFor([&] { return stream.calls().size() == 5; }));
    EXPECT_THAT(stream.calls(), ElementsAre("start audio", "volume 100", "pause", "resume", "stop audio"));
    EXPECT_THAT(log.lines(),
                ElementsAre("Command from parent process: \x05", "Command from parent process: \x06",
                            "Command from parent process: \x07", "Command from parent process: \x09"));
}

TEST_F(StreamBaseTest, VolumeWithoutDataRepeatsTheOneBeforeAndAWrongSizeIsIgnored) {
    LogCapture log;
    Recorder stream(name, serverName);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    command(parent, "0504001e000000", log);
    command(parent, "050000", log);
    command(parent, "0502001e00", log);
    command(parent, "050000", log);
    command(parent, "060000", log);
    ASSERT_TRUE(waitFor([&] { return !stream.calls().empty() && stream.calls().back() == "pause"; }));
    EXPECT_THAT(stream.calls(), ElementsAre("start audio", "volume 30", "start audio", "volume 30", "pause"));
    EXPECT_FALSE(log.contains("Unknown command"));
    EXPECT_EQ(log.lines().size(), 5U);
}

TEST_F(StreamBaseTest, UnknownTypesAreLoggedAndIgnored) {
    LogCapture log;
    Recorder stream(name, serverName);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    int unknown = 0;
    for (const char* type : {"00", "01", "04", "08", "0b", "ff"}) {
        parent->write(QByteArray::fromHex(QByteArray(type) + "0000"));
        ++unknown;
        ASSERT_TRUE(waitFor([&] { return log.count("Unknown command") == unknown; })) << type;
    }
    EXPECT_TRUE(stream.calls().empty());
    EXPECT_TRUE(log.contains("Command from parent process: \x08"));
}

TEST_F(StreamBaseTest, CommandsThatComeTooEarlyAreKept) {
    LogCapture log;
    Recorder stream(name, serverName, /*open=*/false);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    parent->write(QByteArray::fromHex("060000"));
    ASSERT_TRUE(parent->waitForBytesWritten() || parent->bytesToWrite() == 0);
    for (int i = 0; i < 20; ++i) {
        stream.runOnLinkThread([] {}); // lets the link thread come round
    }
    EXPECT_TRUE(stream.calls().empty());
    stream.openCommands();
    ASSERT_TRUE(waitFor([&] { return stream.calls().size() == 1; }));
    EXPECT_THAT(stream.calls(), ElementsAre("pause"));
}

TEST_F(StreamBaseTest, SendsItsMessages) {
    Recorder stream(name, serverName);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    stream.sendFrame(40);
    stream.sendFragment(1, 2);
    stream.sendAbsoluteTime(-1);
    stream.sendFormat();
    ASSERT_TRUE(waitFor([&] { return parent->bytesAvailable() >= 11 + 19 + 11 + 3; }));
    EXPECT_EQ(parent->readAll().toHex(), "0108002800000000000000"
                                         "02100001000000000000000200000000000000"
                                         "030800ffffffffffffffff"
                                         "040000");
}

TEST_F(StreamBaseTest, SetsTheFrameFileUpForAPictureAndTellsTheParentOnce) {
    Recorder stream(name, serverName);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    stream.setupPicture(1920, 1080);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.size(), 8'294'472);
    stream.picture()[0] = 0xAB;
    stream.picture()[1920 * 1080 * 4 - 1] = 0xCD;
    EXPECT_EQ(file.read(9).toHex(), "8007000038040000ab");
    file.seek(8'294'407);
    EXPECT_EQ(file.read(1).toHex(), "cd");

    stream.setupPicture(16, 8);
    EXPECT_EQ(file.size(), 16 * 8 * 4 + 72);
    ASSERT_TRUE(waitFor([&] { return parent->bytesAvailable() >= 6; }));
    EXPECT_EQ(parent->readAll().toHex(), "040000040000");
}

TEST_F(StreamBaseTest, AParentThatNeverUnmapsSeesEverySize) {
    const mediaworker::test::platform::FileThatOnlyGrows frames(path.toStdString());
    FrameChannel channel(name);
    LogCapture log;
    Recorder stream(name, serverName);
    std::vector<std::unique_ptr<QFile>> maps; // a mapping of Windows does not grow
    qint64 largest = 0;
    for (const int side : {16, 64, 32, 8, 64, 128, 16}) {
        QFile& file = *maps.emplace_back(std::make_unique<QFile>(path));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const auto length = static_cast<std::uint32_t>(side);
        stream.setupPicture(length, length / 2);
        const int last = side * side / 2 * 4 - 1;
        stream.picture()[last] = static_cast<std::uint8_t>(side);
        largest = std::max<qint64>(largest, last + 1 + 72);
        EXPECT_EQ(file.size(), largest) << "it only grows";
        const uchar* const seen = file.map(0, file.size()); // for good
        ASSERT_NE(seen, nullptr);
        EXPECT_EQ(qFromLittleEndian<quint32>(seen), length);
        EXPECT_EQ(qFromLittleEndian<quint32>(seen + 4), length / 2);
        EXPECT_EQ(seen[8 + last], static_cast<uchar>(side));
        EXPECT_TRUE(channel.withPicture([&](const std::uint8_t* bgra, int width, int height) {
            EXPECT_EQ(width, side);
            EXPECT_EQ(height, side / 2);
            EXPECT_EQ(bgra[last], static_cast<std::uint8_t>(side));
        }));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(StreamBaseTest, NobodySeesThatAPictureIsExpected) {
    Recorder stream(name, serverName);
    QLocalSocket* parent = accept();
    ASSERT_NE(parent, nullptr);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    for (const int side : {16, 64, 7999}) {
        stream.expectPicture(side, side);
        EXPECT_EQ(file.size(), 0) << side;
    }
    EXPECT_EQ(parent->bytesAvailable(), 0);

    // Expected or not, each set-up is one like any other.
    stream.setupPicture(16, 8);
    stream.picture()[0] = 0xAB;
    EXPECT_EQ(file.read(9).toHex(), "1000000008000000ab");
    stream.setupPicture(16, 8);
    stream.setupPicture(32, 8);
    EXPECT_EQ(file.size(), 32 * 8 * 4 + 72);
    ASSERT_TRUE(waitFor([&] { return parent->bytesAvailable() >= 9; }));
    EXPECT_EQ(parent->readAll().toHex(), "040000040000040000");
}

TEST_F(StreamBaseTest, AFileThatIsInUseStaysWhenAPictureIsExpected) {
    {
        Recorder stream(name, serverName);
        stream.setupPicture(16, 8);
        stream.picture()[0] = 0xAB;
    }
    Recorder next(name, serverName);
    next.expectPicture(64, 64);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.size(), 16 * 8 * 4 + 72) << "the parent may still show what is in there";
    EXPECT_EQ(file.read(9).toHex(), "1000000008000000ab");
}

TEST_F(StreamBaseTest, DrainingGivesAParentThatDoesNotReadASecond) {
    Recorder stream(name, serverName);
    ASSERT_NE(accept(), nullptr);
    for (int i = 0; i < 60'000; ++i) { // more than the system keeps
        stream.sendFrame(i);
    }
    QElapsedTimer timer;
    timer.start();
    stream.drainLink();
    EXPECT_GE(timer.elapsed(), 900);
    EXPECT_LT(timer.elapsed(), 20'000);
}

TEST_F(StreamBaseTest, FrameFileIsTheOwnersOnly) {
    if (kIsWindows) {
        GTEST_SKIP() << "the temporary directory belongs to the user on Windows";
    }
    Recorder stream(name, serverName);
    const auto permissions = QFile::permissions(path);
    EXPECT_TRUE(permissions & QFile::ReadOwner);
    EXPECT_TRUE(permissions & QFile::WriteOwner);
    EXPECT_FALSE(permissions & (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther));
}

TEST_F(StreamBaseTest, HoldsTheSemaphoreWhileAPictureIsWritten) {
    FrameChannel channel(name);
    Recorder stream(name, serverName);
    {
        const ko_player::ResourceGuard guard = stream.lockPicture();
        EXPECT_FALSE(channel.hold(0ms));
    }
    EXPECT_TRUE(channel.hold(0ms));
}

TEST_F(StreamBaseTest, SecondStreamOfAChannelSharesFileAndSemaphoreAndDoesNotResetTheCount) {
    FrameChannel channel(name);
    Recorder first(name, serverName);
    first.setupPicture(16, 8);
    std::optional<Recorder> second;
    {
        const ko_player::ResourceGuard guard = first.lockPicture();
        second.emplace(name, serverName);
        EXPECT_FALSE(channel.hold(0ms));
    }
    {
        const ko_player::ResourceGuard guard = second->lockPicture();
        EXPECT_FALSE(channel.hold(0ms));
    }
    EXPECT_EQ(QFileInfo(path).size(), 16 * 8 * 4 + 72) << "the file of the first one was touched";
    second->setupPicture(32, 16);
    EXPECT_TRUE(channel.withPicture([](const std::uint8_t*, int width, int height) {
        EXPECT_EQ(width, 32);
        EXPECT_EQ(height, 16);
    }));
}

class StreamBaseDeathTest : public StreamBaseTest {
protected:
    StreamBaseDeathTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

TEST_F(StreamBaseDeathTest, FrameFileThatCannotBeMappedEndsTheProcessWithCode1) {
    EXPECT_EXIT(
        {
            QDir(QDir::tempPath()).mkdir(name); // a folder in the file's place
            Recorder stream(name, serverName);
            stream.setupPicture(16, 16);
        },
        ExitedWithCode(1), "can't map the frame file: ");
}

// The server's socket lies where the frame file should be; the pipes of Windows are elsewhere.
TEST_F(StreamBaseDeathTest, ChannelOfTheServersNameEndsTheProcessWithCode1WhereSocketsAreFiles) {
    EXPECT_EXIT(
        {
            Recorder stream(serverName, serverName);
            stream.setupPicture(16, 16);
            base::exitNow(7);
        },
        ExitedWithCode(kIsWindows ? 7 : 1), kIsWindows ? "" : "can't map the frame file: ");
}

TEST_F(StreamBaseDeathTest, PictureThatWrapsTheSizeAroundEndsTheProcessWithCode1) {
    EXPECT_EXIT(
        {
            Recorder stream(name, serverName);
            stream.setupPicture(65536, 16384);
        },
        ExitedWithCode(1), "can't map the frame file: ");
}

/// A parent on a thread of its own, which reads until the worker is gone.
class ReadingParent {
public:
    explicit ReadingParent(const QString& name)
        : thread_(QThread::create([this, name] {
              QLocalServer server;
              server.listen(name);
              listening_.set_value(server.fullServerName());
              if (server.waitForNewConnection(10'000)) {
                  QLocalSocket* link = server.nextPendingConnection();
                  do {
                      bytes_ += link->readAll().size();
                  } while (link->waitForReadyRead(10'000));
                  bytes_ += link->readAll().size();
              }
          })) {
        thread_->start();
        fullName_ = listening_.get_future().get();
    }
    ReadingParent(const ReadingParent&) = delete;
    ReadingParent& operator=(const ReadingParent&) = delete;
    ~ReadingParent() { thread_->wait(); }

    /// Of the server, whatever temporary directory a worker has.
    [[nodiscard]] std::string fullName() const { return fullName_.toStdString(); }
    /// How many came in all. Waits for the end.
    [[nodiscard]] int bytes() {
        thread_->wait();
        return bytes_;
    }

private:
    std::promise<QString> listening_;
    QString fullName_;
    int bytes_ = 0;
    std::unique_ptr<QThread> thread_;
};

TEST_F(StreamBaseDeathTest, DrainedLinkHasWrittenAllThatWasSent) {
    constexpr const char* kServer = "MEDIAWORKER_TEST_SERVER"; // the process that dies runs all this again
    constexpr int kFrames = 100;
    std::optional<ReadingParent> parent;
    if (!qEnvironmentVariableIsSet(kServer)) {
        parent.emplace(name + QStringLiteral("-reader"));
        mediaworker::test::platform::setVariable(kServer, parent->fullName().c_str());
    }
    EXPECT_EXIT(
        {
            Recorder stream(name, qEnvironmentVariable(kServer));
            for (int i = 0; i < kFrames; ++i) {
                stream.sendFrame(i);
            }
            stream.drainLink();
            base::exitNow(0);
        },
        ExitedWithCode(0), "");
    mediaworker::test::platform::setVariable(kServer, nullptr);
    EXPECT_EQ(parent->bytes(), (1 + kFrames) * 11);
}

TEST_F(StreamBaseDeathTest, ParentThatGoesEndsTheProcessWithCode0) {
    EXPECT_EXIT(
        {
            Recorder stream(name, serverName);
            QLocalSocket* parent = accept();
            parent->disconnectFromServer();
            waitFor([] { return false; });
            base::exitNow(9);
        },
        ExitedWithCode(0),
        // A pipe that is closed is no error on Windows.
        kIsWindows ? Matcher<const std::string&>(IsEmpty())
                   : Matcher<const std::string&>(AllOf(StartsWith("Socket error: "), Not(HasSubstr("\n")))));
}

} // namespace
