#include "Session.h"

#include "support/ChildProcess.h"
#include "support/Platform.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using parent::SharedLock;
using parent::StreamJob;
using parent::WorkerProcess;

std::vector<std::string> entriesOf(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

class ManyWorkers : public testing::Test {
protected:
    ManyWorkers() {
        ClipSpec spec;
        spec.frames = 3;
        server_.route("/archive.flv", pacedHandler(makeFlv(encode(spec)), {.speed = 0, .staysOpen = true}));
    }

    bool waitUntil(const std::function<bool()>& isDone) {
        QElapsedTimer timer;
        timer.start();
        while (!isDone()) {
            if (timer.elapsed() > 30000) {
                return false;
            }
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 20);
        }
        return true;
    }

    TemporaryFolder temporary_;
    const platform::TemporaryDirectory useTemporary_{temporary_.path()};
    HttpServer server_;
};

TEST_F(ManyWorkers, InARowLeaveNothingBehind) {
    enum class End { KilledAtOnce, KilledConnected, KilledAtAPicture, LinkDropped, Terminated };
    constexpr int kEnds = 5;
    // Under a sanitizer and under Wine, each takes its time to start.
    constexpr int kWorkers = kSlowness == 1 ? 200 : 50;

    WorkerProcess worker;
    worker.setProgram(QStringLiteral(MEDIAWORKER_PROGRAM));
    bool isConnected = false;
    int pictures = 0;
    int finished = 0;
    QObject::connect(&worker, &WorkerProcess::connected, [&] { isConnected = true; });
    QObject::connect(&worker, &WorkerProcess::frame, [&] { pictures += worker.frames()->read() ? 1 : 0; });
    QObject::connect(&worker, &WorkerProcess::finished, [&] { ++finished; });

    StreamJob job;
    job.url = QString::fromStdString(server_.url("/archive.flv?speed=2"));
    std::vector<int> semaphores;
    int handles = 0;
    for (int i = 0; i < kWorkers; ++i) {
        const End end = static_cast<End>(i % kEnds);
        isConnected = false;
        pictures = 0;
        ASSERT_TRUE(worker.start(job)) << worker.errorString().toStdString();
        if (const auto semaphore = platform::semaphoreOf(
                temporary_.path() / SharedLock::nativeName(worker.frames()->name()).toStdString())) {
            ASSERT_NE(*semaphore, -1);
            semaphores.push_back(*semaphore);
        }
        if (end == End::KilledConnected) {
            ASSERT_TRUE(waitUntil([&] { return isConnected; }));
        } else if (end != End::KilledAtOnce) {
            ASSERT_TRUE(waitUntil([&] { return pictures > 0; }))
                << worker.recentLog().join('\n').toStdString();
        }
        if (end == End::LinkDropped) {
            worker.disconnectLink();
        } else if (end == End::Terminated && !platform::kIsWindows) { // which asks programs with windows only
            worker.terminate();
        } else {
            worker.kill();
        }
        ASSERT_TRUE(waitUntil([&] { return !worker.isRunning(); }));
        ASSERT_EQ(finished, i + 1);
        if (i == kEnds) {
            handles = platform::openHandles(); // what Qt and the system keep is there now
        }
    }
    // The channel of the last one lives as long as the object, or until the next start.
    EXPECT_EQ(platform::mappingsOf(temporary_.path()),
              platform::kIsWindows ? 0 : 1); // where it must not last
    EXPECT_LE(entriesOf(temporary_.path()).size(), 2U);
    parent::ExportJob noChannel;
    noChannel.url = QStringLiteral("http://127.0.0.1:1/");
    noChannel.outputPath = QStringLiteral("/nowhere/x.mp4");
    ASSERT_TRUE(worker.start(noChannel));
    ASSERT_TRUE(waitUntil([&] { return !worker.isRunning(); }));

    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_THAT(entriesOf(temporary_.path()), testing::IsEmpty());
    EXPECT_EQ(platform::mappingsOf(temporary_.path()), 0);
    EXPECT_THAT(platform::childProcesses(), testing::IsEmpty());
    EXPECT_LE(platform::openHandles(), handles);
    for (const int semaphore : semaphores) {
        EXPECT_FALSE(platform::isSemaphore(semaphore)) << "semaphore " << semaphore << " is still there";
    }
}

// Time stamps 1,300 ms apart are shown at once, each by a clock of its own, so that the messages of
// minutes at 25 pictures a second come within some ten seconds. The parent sleeps for most of them.
TEST(SlowParent, OfMinutesOfMessagesMakesNobodyGrow) {
    // Ten minutes; two under Wine, where a parent takes a millisecond for each message.
    constexpr int kPictures = (platform::kIsWindows ? 2 : 10) * 60 * 25;
    constexpr std::uint32_t kSpacingMs = 1300;
    constexpr int kPerSecond = platform::kIsWindows ? 250 : 1500;
    constexpr int kPicturesBeforeMeasuring = kPictures / 5;
    constexpr std::int64_t kGrowthBytes = (platform::kIsWindows ? 16 : 6) << 20;

    ClipSpec spec;
    spec.frames = 25;
    const Clip clip = encode(spec);
    std::vector<TimedBytes> pieces;
    {
        FlvWriter begin;
        begin.header(0x01);
        begin.video(0, spec.codec, true, FlvWriter::kSequenceHeader, clip.videoConfig);
        pieces.push_back({0, begin.bytes(), PieceKind::Header, false});
    }
    for (int i = 0; i < kPictures; ++i) {
        const ClipPacket& packet = clip.video[static_cast<std::size_t>(i) % clip.video.size()];
        FlvWriter tag;
        tag.video(static_cast<std::uint32_t>(i) * kSpacingMs, spec.codec, packet.isKey, FlvWriter::kFrames,
                  packet.bytes);
        pieces.push_back({std::int64_t{1000} * i / kPerSecond, tag.bytes(), PieceKind::Video, packet.isKey});
    }
    HttpServer server;
    server.route("/archive.flv", pacedHandler(pieces, {.staysOpen = true}));

    WorkerProcess worker;
    worker.setProgram(QStringLiteral(MEDIAWORKER_PROGRAM));
    std::int64_t shown = 0;
    bool isInOrder = true;
    int readPictures = 0;
    int naps = 0;
    std::int64_t ownBegin = 0;
    std::int64_t workerBegin = 0;
    std::int64_t ownMost = 0;
    std::int64_t workerMost = 0;
    QElapsedTimer awake;
    const auto measure = [&] {
        workerMost = std::max(workerMost, platform::residentBytes(worker.processId()));
        ownMost = std::max(ownMost, platform::residentBytes(QCoreApplication::applicationPid()));
        if (shown <= kPicturesBeforeMeasuring) {
            ownBegin = ownMost;
            workerBegin = workerMost;
        }
    };
    QObject::connect(&worker, &WorkerProcess::frame, [&](qint64 ptsMs) {
        isInOrder = isInOrder && ptsMs == shown * kSpacingMs;
        ++shown;
        readPictures += worker.frames()->read() ? 1 : 0;
        if (awake.elapsed() > 500) {
            std::this_thread::sleep_for(1s); // the slow parent itself
            ++naps;
            measure();
            awake.restart();
        }
    });
    StreamJob job;
    job.url = QString::fromStdString(server.url("/archive.flv?speed=2"));
    ASSERT_TRUE(worker.start(job));
    QElapsedTimer timer;
    timer.start();
    awake.start();
    while (shown < kPictures && timer.elapsed() < 120000 && worker.isRunning()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 100);
    }
    EXPECT_EQ(shown, kPictures) << worker.recentLog().join('\n').toStdString();
    EXPECT_TRUE(isInOrder);
    EXPECT_GT(readPictures, 0);
    EXPECT_GE(naps, 5) << "the parent was not late";
    ASSERT_GT(ownBegin, 0);
    ASSERT_GT(workerBegin, 0);
    if (kMeasuresMemory) {
        EXPECT_LT(ownMost - ownBegin, kGrowthBytes);
        EXPECT_LT(workerMost - workerBegin, kGrowthBytes);
    }
    RecordProperty("own_growth_bytes", std::to_string(ownMost - ownBegin));
    RecordProperty("worker_growth_bytes", std::to_string(workerMost - workerBegin));
}

} // namespace
} // namespace mediaworker::test
