#include "parent/WorkerProcess.h"

#include "support/Eventually.h"
#include "support/Platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

using namespace mediaworker::parent;
namespace platform = mediaworker::test::platform;
using std::chrono::milliseconds;

namespace {

constexpr int kLimitMs = 20000;

bool eventually(const std::function<bool()>& condition) {
    return mediaworker::test::eventually(condition, std::chrono::milliseconds(kLimitMs));
}

bool isOneColour(const QImage& picture) {
    return std::all_of(picture.constBits(), picture.constBits() + picture.sizeInBytes(),
                       [&](uchar byte) { return byte == *picture.constBits(); });
}

/// A worker that misbehaves, with a temporary directory of its own that must be empty in the end.
class Faults : public ::testing::Test {
protected:
    void SetUp() override {
        temporary_ = QDir::tempPath() + QStringLiteral("/mwf-%1").arg(QCoreApplication::applicationPid());
        QDir().mkpath(temporary_);
        useTemporary_ = std::make_unique<platform::TemporaryDirectory>(temporary_.toStdString());
        worker_ = std::make_unique<WorkerProcess>();
        worker_->setProgram(QStringLiteral(FAKE_WORKER));
        QObject::connect(worker_.get(), &WorkerProcess::logLine, [this](const QString& l) { log_ << l; });
        QObject::connect(worker_.get(), &WorkerProcess::frame, [this] { ++frames_; });
        QObject::connect(worker_.get(), &WorkerProcess::malformed, [this] { ++malformed_; });
        QObject::connect(worker_.get(), &WorkerProcess::finished, [this](int code, bool crashed) {
            ++ends_;
            exitCode_ = code;
            crashed_ = crashed;
        });
    }
    void TearDown() override {
        worker_.reset();
        EXPECT_EQ(QDir(temporary_).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot),
                  QStringList());
        QDir(temporary_).removeRecursively();
        useTemporary_.reset();
    }

    bool start(const QString& script) { return worker_->start(StreamJob{script}); }
    bool waitForEnd() {
        return eventually([this] { return !worker_->isRunning(); });
    }
    bool waitForLine(const char* line) {
        return eventually([&] { return log_.contains(QLatin1String(line)); });
    }

    QString temporary_;
    std::unique_ptr<platform::TemporaryDirectory> useTemporary_;
    std::unique_ptr<WorkerProcess> worker_;
    QStringList log_;
    int frames_ = 0;
    int malformed_ = 0;
    int ends_ = 0;
    int exitCode_ = -1;
    bool crashed_ = false;
};

// It spends most of its time with the semaphore in its hands.
TEST_F(Faults, AWorkerMayBeKilledAtAnyMoment) {
    QElapsedTimer timer;
    timer.start();
    ASSERT_TRUE(start(QStringLiteral("connect;hello;play")));
    ASSERT_TRUE(eventually([this] { return frames_ > 0; }));
    // From before it runs to well into its pictures.
    const qint64 longestLifeNs = timer.nsecsElapsed() + 40'000'000;
    worker_->kill();
    ASSERT_TRUE(waitForEnd());
    constexpr int kRounds = 40;
    for (int i = 0; i < kRounds; ++i) {
        ASSERT_TRUE(start(QStringLiteral("connect;hello;play")));
        timer.start();
        while (timer.nsecsElapsed() < longestLifeNs * i / kRounds) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
            if (const auto picture = worker_->frames()->read()) {
                EXPECT_TRUE(isOneColour(*picture)) << "torn";
            }
        }
        worker_->kill();
        ASSERT_TRUE(waitForEnd());
        EXPECT_EQ(ends_, i + 2);
        EXPECT_TRUE(crashed_);
        // Whether there is a picture or not, nobody holds the semaphore any more.
        EXPECT_TRUE(worker_->frames()->hold(milliseconds(0))) << "after " << i;
        static_cast<void>(worker_->frames()->read()); // perhaps half a picture
    }
    EXPECT_EQ(malformed_, 0);
}

TEST_F(Faults, AWorkerThatStandsStillWithTheSemaphoreCostsNoMoreThanThePatience) {
    ASSERT_TRUE(start(QStringLiteral("connect;hello;picture:32x16;hold;log:held;wait:100000")));
    ASSERT_TRUE(waitForLine("held"));
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(worker_->frames()->read(milliseconds(50)));
    EXPECT_FALSE(worker_->frames()->withPicture([](const std::uint8_t*, int, int) {}, milliseconds(50)));
    EXPECT_GE(timer.elapsed(), 99);
    worker_.reset();
    EXPECT_LT(timer.elapsed(), kLimitMs) << "neither does the end wait for it";
}

TEST_F(Faults, AFrameFileShorterThanItsHeaderSaysHasNoPicture) {
    ASSERT_TRUE(start(QStringLiteral("connect;hello;picture:640x480;log:whole;await;cut:5000;log:cut;await;"
                                     "picture:16x16;log:new;wait:100000")));
    ASSERT_TRUE(waitForLine("whole"));
    ASSERT_TRUE(worker_->frames()->read()) << "it is mapped now";
    ASSERT_TRUE(worker_->writeRaw("x"));
    ASSERT_TRUE(waitForLine("cut"));
    EXPECT_FALSE(worker_->frames()->read());
    ASSERT_TRUE(worker_->writeRaw("x"));
    ASSERT_TRUE(waitForLine("new"));
    EXPECT_TRUE(worker_->frames()->read());
}

TEST_F(Faults, TheSizeMayChangeBetweenTheMessageAndTheMapping) {
    ASSERT_TRUE(
        start(QStringLiteral("connect;hello;picture:64x48;send:0108002800000000000000;log:first;await;"
                             "shape:32x16;log:smaller;await;shape:1280x720;log:larger;wait:100000")));
    ASSERT_TRUE(waitForLine("first"));
    ASSERT_TRUE(eventually([this] { return frames_ == 1; }));
    const FrameChannel::PictureReader nothing = [](const std::uint8_t*, int, int) {};
    ASSERT_TRUE(worker_->frames()->withPicture(nothing));
    for (const auto& [line, size] :
         {std::pair("smaller", QSize(32, 16)), std::pair("larger", QSize(1280, 720))}) {
        ASSERT_TRUE(worker_->writeRaw("x"));
        ASSERT_TRUE(waitForLine(line));
        const auto picture = worker_->frames()->read();
        ASSERT_TRUE(picture) << line;
        EXPECT_EQ(picture->size(), size);
        EXPECT_TRUE(isOneColour(*picture));
    }
}

TEST_F(Faults, AnyGarbageIsRead) {
    for (int seed = 1; seed <= 40; ++seed) {
        ASSERT_TRUE(start(QStringLiteral("connect;garbage:%1;exit:0").arg(seed)));
        ASSERT_TRUE(waitForEnd()) << "seed " << seed;
        EXPECT_FALSE(crashed_) << "seed " << seed;
        EXPECT_EQ(exitCode_, 0) << "seed " << seed;
    }
    EXPECT_GT(malformed_, 0);
    EXPECT_EQ(ends_, 40);
}

TEST_F(Faults, AWorkerThatNeverConnectsCanBeGivenUp) {
    int timeOuts = 0;
    QObject::connect(worker_.get(), &WorkerProcess::connectTimedOut, [&] {
        ++timeOuts;
        worker_->kill();
    });
    worker_->setConnectTimeout(milliseconds(20));
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(start(QStringLiteral("wait:100000")));
        EXPECT_TRUE(worker_->pause()) << "commands wait";
        ASSERT_TRUE(waitForEnd());
        EXPECT_TRUE(crashed_);
    }
    EXPECT_EQ(timeOuts, 5);
}

} // namespace
