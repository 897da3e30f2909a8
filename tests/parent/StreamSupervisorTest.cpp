#include "parent/StreamSupervisor.h"

#include "support/Eventually.h"
#include "support/Platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

using namespace mediaworker::parent;
using namespace std::chrono_literals;
namespace platform = mediaworker::test::platform;

namespace {

constexpr int kLimitMs = 30000;

bool eventually(const std::function<bool()>& condition) {
    return mediaworker::test::eventually(condition, std::chrono::milliseconds(kLimitMs));
}

// What the worker's stand-in does.
const QString kPicture = QStringLiteral("connect;hello;picture:16x8;send:0108000000000000000000;");
const QString kShort = kPicture + QStringLiteral("exit:3");
const QString kServing = QStringLiteral("connect;hello;serve");

/// Each test has a temporary directory of its own, so that leftovers are its own as well.
class StreamSupervisorTest : public ::testing::Test {
protected:
    void SetUp() override {
        temporary_ = QDir::tempPath() + QStringLiteral("/mws-%1").arg(QCoreApplication::applicationPid());
        QDir().mkpath(temporary_);
        useTemporary_ = std::make_unique<platform::TemporaryDirectory>(temporary_.toStdString());
        stream_ = std::make_unique<StreamSupervisor>();
        stream_->worker().setProgram(QStringLiteral(FAKE_WORKER));
        stream_->setPolicy({.firstDelay = 20ms, .longestDelay = 40ms});
        QObject::connect(stream_.get(), &StreamSupervisor::started,
                         [this](int attempt) { events_ << QStringLiteral("started %1").arg(attempt); });
        QObject::connect(stream_.get(), &StreamSupervisor::waiting, [this](const QString& why, qint64) {
            events_ << QStringLiteral("waiting: ") + why;
        });
        QObject::connect(stream_.get(), &StreamSupervisor::ended,
                         [this](const QString& why) { events_ << QStringLiteral("ended: ") + why; });
        QObject::connect(&stream_->worker(), &WorkerProcess::frame, [this] { ++frames_; });
        QObject::connect(&stream_->worker(), &WorkerProcess::logLine, [this](const QString& line) {
            if (line.startsWith(QStringLiteral("took "))) {
                taken_ << line.mid(5);
            }
        });
    }
    void TearDown() override {
        stream_.reset();
        EXPECT_TRUE(QDir(temporary_).entryList(QDir::Files | QDir::System | QDir::Hidden).isEmpty());
        QDir(temporary_).removeRecursively();
        useTemporary_.reset();
    }

    void start(const QString& script) { stream_->start(StreamJob{script}); }
    bool waitFor(const char* event, int count = 1) {
        return eventually([&] { return events_.count(QString::fromLatin1(event)) >= count; });
    }
    bool waitForState(StreamState state) {
        return eventually([&] { return stream_->state() == state; });
    }
    /// A byte of the picture that can be read, -1: there is none.
    int pictureWidth() {
        const auto picture = stream_->frames() != nullptr ? stream_->frames()->read() : std::nullopt;
        return picture ? picture->width() : -1;
    }

    QString temporary_;
    std::unique_ptr<platform::TemporaryDirectory> useTemporary_;
    std::unique_ptr<StreamSupervisor> stream_;
    QStringList events_;
    QStringList taken_;
    int frames_ = 0; ///< messages, of all workers
};

TEST_F(StreamSupervisorTest, StartsAnotherWorkerAfterEachEnd) {
    EXPECT_EQ(stream_->state(), StreamState::Idle);
    start(kShort);
    EXPECT_EQ(stream_->state(), StreamState::Running);
    ASSERT_TRUE(waitFor("started 4"));
    EXPECT_EQ(events_.mid(0, 6).join(u'|').toStdString(),
              "started 1|waiting: the server ended the stream|started 2|waiting: the server ended the "
              "stream|started 3|waiting: the server ended the stream");
}

TEST_F(StreamSupervisorTest, KeepsTheLastPictureWhileNobodyPlays) {
    stream_->setPolicy({.firstDelay = 1h, .longestDelay = 1h});
    start(kShort);
    ASSERT_TRUE(waitForState(StreamState::Waiting));
    EXPECT_EQ(pictureWidth(), 16);
    ASSERT_TRUE(stream_->untilNextAttempt());
    EXPECT_GT(*stream_->untilNextAttempt(), 30min);
    EXPECT_EQ(stream_->endWords().toStdString(), "the server ended the stream");

    stream_->retry();
    EXPECT_EQ(stream_->state(), StreamState::Running);
    EXPECT_FALSE(stream_->untilNextAttempt());
    EXPECT_TRUE(stream_->endWords().isEmpty());
    EXPECT_EQ(stream_->worker().frames()->read(), std::nullopt) << "the new one has none yet";
    EXPECT_EQ(pictureWidth(), 16) << "so the old one's is still there";

    start(kServing);
    EXPECT_EQ(pictureWidth(), -1) << "another stream has no business with it";
}

TEST_F(StreamSupervisorTest, ShowsTheNewWorkersPictureFromItsFirstOn) {
    start(kPicture + QStringLiteral("serve"));
    ASSERT_TRUE(eventually([&] { return frames_ == 1; }));
    FrameChannel* const first = stream_->frames();
    stream_->worker().kill();
    ASSERT_TRUE(waitFor("started 2"));
    EXPECT_EQ(stream_->frames(), first);
    ASSERT_TRUE(eventually([&] { return stream_->frames() == stream_->worker().frames(); }));
    EXPECT_EQ(pictureWidth(), 16);
}

TEST_F(StreamSupervisorTest, VolumeAndPauseGoToTheNextWorker) {
    start(kServing);
    stream_->setVolume(40);
    stream_->setPaused(true);
    ASSERT_TRUE(eventually([&] { return taken_.size() == 2; })) << taken_.join(u' ').toStdString();
    const QStringList commands = taken_;
    stream_->worker().kill();
    ASSERT_TRUE(eventually([&] { return taken_.size() == 4; }));
    EXPECT_EQ(taken_.mid(2), commands);

    stream_->setPaused(false);
    stream_->stopAudio();
    ASSERT_TRUE(eventually([&] { return taken_.size() == 6; }));
    stream_->worker().kill();
    ASSERT_TRUE(waitFor("started 3"));
    ASSERT_TRUE(eventually([&] { return stream_->worker().isConnected(); }));
    stream_->setPaused(true);
    ASSERT_TRUE(eventually([&] { return taken_.size() == 7; }));
    EXPECT_EQ(taken_[6], commands[1]) << "no volume and no pause came before it";
}

TEST_F(StreamSupervisorTest, EndsWhenItIsAsked) {
    start(kServing);
    ASSERT_TRUE(eventually([&] { return stream_->worker().isConnected(); }));
    stream_->stop();
    ASSERT_TRUE(waitFor("ended: stopped"));
    EXPECT_EQ(stream_->state(), StreamState::Ended);

    events_.clear();
    stream_->setPolicy({.firstDelay = 1h, .longestDelay = 1h});
    start(kShort);
    ASSERT_TRUE(waitForState(StreamState::Waiting));
    stream_->stop();
    EXPECT_EQ(events_.back().toStdString(), "ended: stopped") << "also while no worker runs";
    EXPECT_FALSE(stream_->untilNextAttempt());
    stream_->stop();
    EXPECT_EQ(events_.count(QStringLiteral("ended: stopped")), 1);
    stream_->retry();
    EXPECT_EQ(stream_->state(), StreamState::Running) << "but for the user";
}

TEST_F(StreamSupervisorTest, AWorkerThatDoesNotObeyIsKilled) {
    start(QStringLiteral("connect;hello;wait:600000"));
    ASSERT_TRUE(eventually([&] { return stream_->worker().isConnected(); }));
    stream_->stop();
    ASSERT_TRUE(waitFor("ended: stopped"));
    EXPECT_FALSE(stream_->worker().isRunning());
}

TEST_F(StreamSupervisorTest, AWorkerThatStandsStillIsReplaced) {
    start(kPicture + QStringLiteral("wait:600000"));
    ASSERT_TRUE(waitFor("started 2"));
    EXPECT_EQ(events_[1].toStdString(), "waiting: the worker stood still");
}

TEST_F(StreamSupervisorTest, AWorkerThatIsPausedMayStandStill) {
    start(kPicture + QStringLiteral("serve"));
    stream_->setPaused(true);
    ASSERT_TRUE(eventually([&] { return !taken_.isEmpty(); }));
    QElapsedTimer timer;
    timer.start();
    // What bounds the silence: a second, and five.
    eventually([&] { return timer.elapsed() > 7500 || events_.size() > 1; });
    EXPECT_EQ(events_, QStringList{QStringLiteral("started 1")});
    stream_->setPaused(false);
    ASSERT_TRUE(waitFor("waiting: the worker stood still"));
}

TEST_F(StreamSupervisorTest, AWorkerThatClosesItsLinkOrNeverConnectsIsReplaced) {
    start(QStringLiteral("connect;hello;drop;wait:600000"));
    ASSERT_TRUE(waitFor("waiting: the worker closed its link, but did not end"));
    events_.clear();
    stream_->worker().setConnectTimeout(100ms);
    start(QStringLiteral("wait:600000"));
    ASSERT_TRUE(waitFor("waiting: the worker did not connect"));
}

TEST_F(StreamSupervisorTest, GivesUpWhatCannotWork) {
    start(
        QStringLiteral("connect;hello;log:pictures unavailable: H.263: this codec is not supported;exit:2"));
    ASSERT_TRUE(waitForState(StreamState::Ended));
    EXPECT_EQ(stream_->attempt(), 3);
    EXPECT_EQ(events_.back().toStdString(),
              "ended: the pictures cannot be shown: H.263: this codec is not supported");

    events_.clear();
    stream_->worker().setProgram(QStringLiteral("there-is-no-such-program"));
    stream_->retry();
    ASSERT_TRUE(waitForState(StreamState::Ended));
    EXPECT_EQ(stream_->attempt(), 3);
    EXPECT_TRUE(events_.back().startsWith(QStringLiteral("ended: the worker cannot be started: ")));
}

TEST_F(StreamSupervisorTest, Never) {
    stream_->setPolicy({.isEnabled = false});
    start(kShort);
    ASSERT_TRUE(waitFor("ended: the server ended the stream"));
    EXPECT_EQ(events_.size(), 2);
}

// Many streams of one server: their second attempts are spread over the part that is left to chance.
TEST_F(StreamSupervisorTest, ManyStreamsDoNotComeBackInTheSameInstant) {
    std::vector<std::unique_ptr<StreamSupervisor>> wall;
    std::vector<qint64> delays;
    for (int i = 0; i < 16; ++i) {
        auto& stream = *wall.emplace_back(std::make_unique<StreamSupervisor>());
        stream.setPolicy({.firstDelay = 1h, .longestDelay = 1h});
        stream.worker().setProgram(QStringLiteral(FAKE_WORKER));
        QObject::connect(&stream, &StreamSupervisor::waiting,
                         [&](const QString&, qint64 delayMs) { delays.push_back(delayMs); });
        stream.start(StreamJob{QStringLiteral("exit:3")});
    }
    ASSERT_TRUE(eventually([&] { return delays.size() == wall.size(); }));
    const auto [least, most] = std::minmax_element(delays.begin(), delays.end());
    EXPECT_GT(*most - *least, 3600000 / 20);
    EXPECT_LE(*most, 3600000);
    EXPECT_GE(*least, 3600000 * 8 / 10);
}

TEST_F(StreamSupervisorTest, GoesInTheMiddleOfEverything) {
    for (const char* script :
         {"connect;hello;play", "wait:60000", "exit:3", "connect;hello;drop;wait:60000"}) {
        for (const auto wait : {0ms, 30ms, 100ms}) {
            StreamSupervisor stream;
            stream.worker().setProgram(QStringLiteral(FAKE_WORKER));
            stream.setPolicy({.firstDelay = 5ms});
            stream.start(StreamJob{QString::fromLatin1(script)});
            QElapsedTimer timer;
            timer.start();
            eventually([&] { return timer.elapsed() >= wait.count(); });
        }
    }
}

TEST(IsLive, TellsStreamsFromRecordingsAndFiles) {
    EXPECT_TRUE(isLive(QStringLiteral("http://h/cam.flv")));
    EXPECT_TRUE(isLive(QStringLiteral("https://h/cam.flv")));
    EXPECT_FALSE(isLive(QStringLiteral("http://h/archive/1.flv")));
    EXPECT_FALSE(isLive(QStringLiteral("file:///film.mp4")));
}

TEST(LongestFrameWait, IsTheWorkersOwnLimitForAFirstPicture) {
    EXPECT_EQ(longestFrameWait(QStringLiteral("http://h/live.flv")), 5s);
    EXPECT_EQ(longestFrameWait(QStringLiteral("https://h/live.flv")), 8s);
    EXPECT_EQ(longestFrameWait(QStringLiteral("http://h/archive.flv")), 10s);
    EXPECT_EQ(longestFrameWait(QStringLiteral("https://h/archive.flv")), 13s);
    EXPECT_EQ(longestFrameWait(QStringLiteral("file:///film.mp4")), 1s);
}

} // namespace
