#include "Session.h"

#include "support/ChildProcess.h"
#include "support/qt/HttpServer.h"
#include "support/qt/Pacing.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

namespace mediaworker::test {
namespace {

using parent::SharedLock;
using parent::StreamJob;
using parent::WorkerProcess;

constexpr int kSystemKeyProject = 'Q';

std::vector<std::string> entriesOf(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

/// Processes that this one has started and not yet seen the end of, the zombies among them.
std::string children() {
    std::string all;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream list(thread.path() / "children");
        all.append(std::istreambuf_iterator<char>(list), {});
    }
    return all;
}

int mappingsOf(const std::string& part) {
    std::ifstream maps("/proc/self/maps");
    int found = 0;
    for (std::string line; std::getline(maps, line);) {
        found += line.find(part) != std::string::npos ? 1 : 0;
    }
    return found;
}

class ManyWorkers : public testing::Test {
protected:
    ManyWorkers() {
        ClipSpec spec;
        spec.frames = 3;
        server_.route("/archive.flv", pacedHandler(makeFlv(encode(spec)), {.speed = 0, .staysOpen = true}));
        temporary_ = folder_ / "tmp";
        std::filesystem::create_directory(temporary_);
        qputenv("TMPDIR", temporary_.c_str());
    }
    ~ManyWorkers() override { qunsetenv("TMPDIR"); }

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

    /// The system's semaphore of a channel; -1 when there is none.
    [[nodiscard]] int semaphoreOf(const QString& channel) const {
        const auto file = temporary_ / SharedLock::nativeName(channel).toStdString();
        const key_t key = ftok(file.c_str(), kSystemKeyProject);
        return key == -1 ? -1 : semget(key, 1, 0);
    }

    TemporaryFolder folder_;
    std::filesystem::path temporary_;
    HttpServer server_;
};

TEST_F(ManyWorkers, InARowLeaveNothingBehind) {
    enum class End { KilledAtOnce, KilledConnected, KilledAtAPicture, LinkDropped, Terminated };
    constexpr int kEnds = 5;
    constexpr int kWorkers = kSlowness == 1 ? 200 : 50; // a sanitizer takes seconds to start

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
    std::size_t descriptors = 0;
    for (int i = 0; i < kWorkers; ++i) {
        const End end = static_cast<End>(i % kEnds);
        isConnected = false;
        pictures = 0;
        ASSERT_TRUE(worker.start(job)) << worker.errorString().toStdString();
        semaphores.push_back(semaphoreOf(worker.frames()->name()));
        ASSERT_NE(semaphores.back(), -1);
        if (end == End::KilledConnected) {
            ASSERT_TRUE(waitUntil([&] { return isConnected; }));
        } else if (end != End::KilledAtOnce) {
            ASSERT_TRUE(waitUntil([&] { return pictures > 0; }))
                << worker.recentLog().join('\n').toStdString();
        }
        if (end == End::LinkDropped) {
            worker.disconnectLink();
        } else if (end == End::Terminated) {
            worker.terminate();
        } else {
            worker.kill();
        }
        ASSERT_TRUE(waitUntil([&] { return !worker.isRunning(); }));
        ASSERT_EQ(finished, i + 1);
        if (i == kEnds) {
            descriptors = entriesOf("/proc/self/fd").size(); // what Qt and the system keep is there now
        }
    }
    // The channel of the last one lives as long as the object, or until the next start.
    EXPECT_EQ(mappingsOf(temporary_.string()), 1);
    EXPECT_LE(entriesOf(temporary_).size(), 2U);
    parent::ExportJob noChannel;
    noChannel.url = QStringLiteral("http://127.0.0.1:1/");
    noChannel.outputPath = QStringLiteral("/nowhere/x.mp4");
    ASSERT_TRUE(worker.start(noChannel));
    ASSERT_TRUE(waitUntil([&] { return !worker.isRunning(); }));

    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_THAT(entriesOf(temporary_), testing::IsEmpty());
    EXPECT_EQ(mappingsOf(temporary_.string()), 0);
    EXPECT_EQ(children(), "");
    EXPECT_LE(entriesOf("/proc/self/fd").size(), descriptors);
    for (const int semaphore : semaphores) {
        EXPECT_EQ(semctl(semaphore, 0, GETVAL), -1) << "semaphore " << semaphore << " is still there";
    }
}

/// Resident memory of a process, in bytes.
std::int64_t residentBytes(qint64 pid) {
    std::ifstream statm("/proc/" + std::to_string(pid) + "/statm");
    std::int64_t all = 0;
    std::int64_t resident = 0;
    statm >> all >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

// Time stamps 1,300 ms apart are shown at once, each by a clock of its own, so that the messages of ten
// minutes at 25 pictures a second come within some ten seconds. The parent looks at its messages once a
// second.
TEST(SlowParent, OfTenMinutesOfMessagesMakesNobodyGrow) {
    constexpr int kPictures = 10 * 60 * 25;
    constexpr std::uint32_t kSpacingMs = 1300;
    constexpr int kPerSecond = 1500;
    constexpr int kPicturesBeforeMeasuring = kPictures / 5;
    constexpr std::int64_t kGrowthBytes = 6 << 20;

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
    QObject::connect(&worker, &WorkerProcess::frame, [&](qint64 ptsMs) {
        isInOrder = isInOrder && ptsMs == shown * kSpacingMs;
        ++shown;
        readPictures += worker.frames()->read() ? 1 : 0;
    });
    StreamJob job;
    job.url = QString::fromStdString(server.url("/archive.flv?speed=2"));
    ASSERT_TRUE(worker.start(job));

    std::int64_t ownBegin = 0;
    std::int64_t workerBegin = 0;
    std::int64_t ownMost = 0;
    std::int64_t workerMost = 0;
    std::int64_t longestBatch = 0;
    QElapsedTimer timer;
    timer.start();
    while (shown < kPictures && timer.elapsed() < 120000 && worker.isRunning()) {
        usleep(1'000'000); // the slow parent itself
        workerMost = std::max(workerMost, residentBytes(worker.processId()));
        const std::int64_t before = shown;
        for (std::int64_t last = -1; last != shown;) {
            last = shown;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
        }
        longestBatch = std::max(longestBatch, shown - before);
        ownMost = std::max(ownMost, residentBytes(getpid()));
        if (shown <= kPicturesBeforeMeasuring) {
            ownBegin = ownMost;
            workerBegin = workerMost;
        }
    }
    EXPECT_EQ(shown, kPictures) << worker.recentLog().join('\n').toStdString();
    EXPECT_TRUE(isInOrder);
    EXPECT_GT(readPictures, 0);
    EXPECT_GT(longestBatch, 25) << "the parent was not late";
    ASSERT_GT(ownBegin, 0);
    ASSERT_GT(workerBegin, 0);
    if (kSlowness == 1) {
        EXPECT_LT(ownMost - ownBegin, kGrowthBytes);
        EXPECT_LT(workerMost - workerBegin, kGrowthBytes);
    }
    RecordProperty("own_growth_bytes", std::to_string(ownMost - ownBegin));
    RecordProperty("worker_growth_bytes", std::to_string(workerMost - workerBegin));
}

} // namespace
} // namespace mediaworker::test
