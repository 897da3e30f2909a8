#include "parent/WorkerProcess.h"

#include "support/ChildProcess.h"
#include "support/Eventually.h"
#include "support/Platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLocalSocket>

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>

using namespace mediaworker::parent;
namespace platform = mediaworker::test::platform;
using std::chrono::milliseconds;

/// GoogleTest finds it in the namespace of the type.
inline void PrintTo(const QStringList& list, std::ostream* out) {
    *out << list.join(QStringLiteral(" | ")).toStdString();
}

namespace {

constexpr int kLimitMs = 20000;

bool eventually(const std::function<bool()>& condition, int limitMs = kLimitMs) {
    return mediaworker::test::eventually(condition, std::chrono::milliseconds(limitMs));
}

QStringList leftovers() {
    return QDir(QDir::tempPath())
        .entryList({QStringLiteral("mediaworker-*"), QStringLiteral("qipc_systemsem_mediaworker*")},
                   QDir::Files | QDir::System | QDir::Hidden);
}

/// Each test has a temporary directory of its own, so that leftovers are its own as well.
class WorkerProcessTest : public ::testing::Test {
protected:
    void SetUp() override {
        temporary_ = QDir::tempPath() + QStringLiteral("/mwt-%1").arg(QCoreApplication::applicationPid());
        QDir().mkpath(temporary_);
        useTemporary_ = std::make_unique<platform::TemporaryDirectory>(temporary_.toStdString());
        makeWorker();
    }
    void TearDown() override {
        worker_.reset();
        EXPECT_EQ(leftovers(), QStringList());
        QDir(temporary_).removeRecursively();
        useTemporary_.reset();
    }

    void makeWorker() {
        worker_ = std::make_unique<WorkerProcess>();
        worker_->setProgram(QStringLiteral(FAKE_WORKER));
        WorkerProcess& w = *worker_;
        const auto note = [this](const QString& what) { events_ << what; };
        QObject::connect(&w, &WorkerProcess::connected, [=](qint64) { note(QStringLiteral("connected")); });
        QObject::connect(&w, &WorkerProcess::frame,
                         [=](qint64 pts) { note(QStringLiteral("frame %1").arg(pts)); });
        QObject::connect(&w, &WorkerProcess::fragment, [=](qint64 position, qint64 duration) {
            note(QStringLiteral("fragment %1 %2").arg(position).arg(duration));
        });
        QObject::connect(&w, &WorkerProcess::absoluteTime,
                         [=](qint64 value) { note(QStringLiteral("absolute %1").arg(value)); });
        QObject::connect(&w, &WorkerProcess::formatChanged, [=] { note(QStringLiteral("format")); });
        QObject::connect(&w, &WorkerProcess::progress,
                         [=](int percent) { note(QStringLiteral("progress %1").arg(percent)); });
        QObject::connect(&w, &WorkerProcess::malformed, [=](int type, int size) {
            note(QStringLiteral("malformed %1 %2").arg(type).arg(size));
        });
        QObject::connect(&w, &WorkerProcess::soundUnavailable,
                         [=](const QString& why) { note(QStringLiteral("no sound: ") + why); });
        QObject::connect(&w, &WorkerProcess::linkClosed, [=] { note(QStringLiteral("linkClosed")); });
        QObject::connect(&w, &WorkerProcess::connectTimedOut,
                         [=] { note(QStringLiteral("connectTimedOut")); });
        QObject::connect(&w, &WorkerProcess::startFailed, [=] { note(QStringLiteral("startFailed")); });
        QObject::connect(&w, &WorkerProcess::finished, [=](int code, bool crashed) {
            note(crashed ? QStringLiteral("crashed") : QStringLiteral("finished %1").arg(code));
        });
        QObject::connect(&w, &WorkerProcess::logLine, [this](const QString& line) { log_ << line; });
    }

    bool start(const char* script) { return worker_->start(StreamJob{QString::fromLatin1(script)}); }
    bool waitForEnd() {
        return eventually([this] { return !worker_->isRunning(); });
    }
    bool waitForEvent(const QString& event) {
        return eventually([&] { return events_.contains(event); });
    }
    QStringList taken() const {
        QStringList packets;
        for (const QString& line : log_) {
            if (line.startsWith(QStringLiteral("took "))) {
                packets << line.mid(5);
            }
        }
        return packets;
    }

    QString temporary_;
    std::unique_ptr<platform::TemporaryDirectory> useTemporary_;
    std::unique_ptr<WorkerProcess> worker_;
    QStringList events_;
    QStringList log_;
};

const QStringList kEnded0{QStringLiteral("finished 0")};

} // namespace

TEST_F(WorkerProcessTest, DeliversEveryMessage) {
    ASSERT_TRUE(start("connect;hello;send:0400000108002800000000000000;"
                      "send:021000e80300000000000060ea000000000000;send:0308000100000000000000;"
                      "send:08040032000000;exit:3"));
    ASSERT_TRUE(waitForEnd());
    events_.removeAll(QStringLiteral("linkClosed"));
    EXPECT_EQ(events_,
              (QStringList{QStringLiteral("connected"), QStringLiteral("format"), QStringLiteral("frame 40"),
                           QStringLiteral("fragment 1000 60000"), QStringLiteral("absolute 1"),
                           QStringLiteral("progress 50"), QStringLiteral("finished 3")}));
}

TEST_F(WorkerProcessTest, WaitingForTheEndDeliversEverythingWithoutAnEventLoop) {
    ASSERT_TRUE(start("connect;hello;send:0108002a00000000000000;log:text;send:040000;exit:3"));
    EXPECT_TRUE(worker_->waitForFinished(milliseconds(kLimitMs)));
    EXPECT_FALSE(worker_->isRunning());
    events_.removeAll(QStringLiteral("linkClosed"));
    EXPECT_EQ(events_, (QStringList{QStringLiteral("connected"), QStringLiteral("frame 42"),
                                    QStringLiteral("format"), QStringLiteral("finished 3")}));
}

TEST_F(WorkerProcessTest, WaitingForTheEndReadsMoreThanTheSystemKeeps) {
    // The system counts small writes as large ones: a few hundred fill its buffer.
    constexpr int kFrames = 100; // of 11 writes each
    const QByteArray script =
        "connect;hello;pieces:" + QByteArray("0108002a00000000000000").repeated(kFrames) + ";exit:3";
    ASSERT_TRUE(start(script.constData()));
    EXPECT_TRUE(worker_->waitForFinished(milliseconds(kLimitMs)));
    EXPECT_EQ(events_.count(QStringLiteral("frame 42")), kFrames);
    EXPECT_EQ(events_.last(), QStringLiteral("finished 3"));
}

TEST_F(WorkerProcessTest, WaitingForTheEndWritesTheCommands) {
    ASSERT_TRUE(start("connect;hello;await;exit:5"));
    EXPECT_TRUE(worker_->pause());
    EXPECT_TRUE(worker_->waitForFinished(milliseconds(kLimitMs)));
    EXPECT_EQ(events_.last(), QStringLiteral("finished 5"));
}

TEST_F(WorkerProcessTest, WaitingIsOverWhenItsTimeIs) {
    ASSERT_TRUE(start("connect;hello;serve"));
    EXPECT_FALSE(worker_->waitForFinished(milliseconds(200)));
    EXPECT_TRUE(worker_->isRunning());
    worker_->kill();
    EXPECT_TRUE(worker_->waitForFinished(milliseconds(-1)));
}

TEST_F(WorkerProcessTest, WaitingForAProgramThatCannotRunIsOverAtOnce) {
    worker_->setProgram(QStringLiteral("/nowhere/no-such-worker"));
    StreamJob job;
    job.url = QStringLiteral("x");
    ASSERT_TRUE(worker_->start(job));
    const bool isToldAtOnce = !worker_->isRunning(); // by Windows
    EXPECT_EQ(worker_->waitForFinished(milliseconds(-1)), isToldAtOnce);
    EXPECT_FALSE(worker_->isRunning());
    EXPECT_EQ(events_, QStringList{QStringLiteral("startFailed")});
}

TEST_F(WorkerProcessTest, ReadsMessagesThatComeInPieces) {
    ASSERT_TRUE(start("connect;hello;pieces:01080028000000000000000400000108005000000000000000;exit:0"));
    ASSERT_TRUE(waitForEnd());
    events_.removeAll(QStringLiteral("linkClosed"));
    EXPECT_EQ(events_,
              (QStringList{QStringLiteral("connected"), QStringLiteral("frame 40"), QStringLiteral("format"),
                           QStringLiteral("frame 80"), QStringLiteral("finished 0")}));
}

TEST_F(WorkerProcessTest, ReportsGarbageAndReadsOn) {
    ASSERT_TRUE(start("connect;hello;send:c80200ffff;send:01000006000040;wait:20;exit:0"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_TRUE(events_.contains(QStringLiteral("malformed 200 2"))) << ::testing::PrintToString(events_);
    EXPECT_TRUE(events_.contains(QStringLiteral("malformed 1 0"))) << ::testing::PrintToString(events_);
    EXPECT_TRUE(events_.contains(QStringLiteral("malformed 6 0"))) << ::testing::PrintToString(events_);
    EXPECT_EQ(events_.last(), QStringLiteral("finished 0"));
}

TEST_F(WorkerProcessTest, SurvivesHalfAPacketAtTheEnd) {
    ASSERT_TRUE(start("connect;hello;send:0108002800;crash"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(events_.last(), QStringLiteral("crashed"));
    EXPECT_FALSE(events_.contains(QStringLiteral("frame 40")));
}

TEST_F(WorkerProcessTest, PassesTheArgumentsOfAStream) {
    ASSERT_TRUE(worker_->start(
        StreamJob{QStringLiteral("args"), QStringLiteral("http://u:p@h:1"), QStringLiteral("socks5")}));
    const QString channel = worker_->frames()->name();
    const QString server = worker_->serverName();
    ASSERT_TRUE(waitForEnd());
    // Nobody shows passwords; that the worker has it, the tests with proxies see.
    EXPECT_EQ(log_, (QStringList{QStringLiteral("arg: ") + channel, QStringLiteral("arg: ") + server,
                                 QStringLiteral("arg: http://***@h:1"), QStringLiteral("arg: socks5")}));
    EXPECT_NE(channel, server);
}

TEST_F(WorkerProcessTest, PassesNoProxyWhereThereIsNone) {
    ASSERT_TRUE(worker_->start(StreamJob{QStringLiteral("args"), {}, QStringLiteral("socks5")}));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(log_.size(), 2);
}

TEST_F(WorkerProcessTest, PassesTheArgumentsOfAnExport) {
    ASSERT_TRUE(worker_->start(ExportJob{QStringLiteral("args;connect;hello;send:08040064000000;exit:0"),
                                         60000, QStringLiteral("/x/out file.mp4")}));
    const QString server = worker_->serverName();
    EXPECT_EQ(worker_->frames(), nullptr);
    EXPECT_FALSE(worker_->pause()) << "an export takes no commands";
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(log_.mid(1), (QStringList{QStringLiteral("arg: 60000"), QStringLiteral("arg: /x/out file.mp4"),
                                        QStringLiteral("arg: ") + server}));
    EXPECT_TRUE(events_.contains(QStringLiteral("progress 100")));
}

TEST_F(WorkerProcessTest, AddsToTheEnvironment) {
    worker_->setExtraEnvironment({{QStringLiteral("MW_X"), QStringLiteral("a b")}});
    qputenv("MW_Y", "ours");
    ASSERT_TRUE(start("env:MW_X;env:MW_Y"));
    ASSERT_TRUE(waitForEnd());
    qunsetenv("MW_Y");
    EXPECT_EQ(log_, (QStringList{QStringLiteral("env: a b"), QStringLiteral("env: ours")}));
}

namespace {

/// MEDIAWORKER_OPTIONS in this process's own environment.
class OwnOptions {
public:
    explicit OwnOptions(const char* value) { qputenv(kOptionsVariable, value); }
    OwnOptions(const OwnOptions&) = delete;
    OwnOptions& operator=(const OwnOptions&) = delete;
    ~OwnOptions() { qunsetenv(kOptionsVariable); }
};

} // namespace

TEST_F(WorkerProcessTest, TellsAStreamsOptionsWhateverItInherits) {
    const OwnOptions own("flv=strict,something=else");
    ASSERT_TRUE(start("env:MEDIAWORKER_OPTIONS"));
    ASSERT_TRUE(waitForEnd());
    ASSERT_TRUE(worker_->start(StreamJob{.url = QStringLiteral("env:MEDIAWORKER_OPTIONS"),
                                         .flv = FlvReading::Strict,
                                         .lowLatency = true,
                                         .sync = false,
                                         .sandbox = false}));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(log_, (QStringList{QStringLiteral("env: flv=standard,buffering=on,sync=on,sandbox=on"),
                                 QStringLiteral("env: flv=strict,buffering=off,sync=off,sandbox=off")}));
}

TEST_F(WorkerProcessTest, TellsAnExportsOptions) {
    for (const FlvReading flv : {FlvReading::Standard, FlvReading::Strict}) {
        ASSERT_TRUE(worker_->start(ExportJob{.url = QStringLiteral("env:MEDIAWORKER_OPTIONS"),
                                             .durationMs = 1,
                                             .outputPath = QStringLiteral("x"),
                                             .flv = flv}));
        ASSERT_TRUE(waitForEnd());
    }
    EXPECT_EQ(log_, (QStringList{QStringLiteral("env: flv=standard,length=exact,sandbox=on,mp4=safe"),
                                 QStringLiteral("env: flv=strict,length=exact,sandbox=on,mp4=safe")}));
}

TEST_F(WorkerProcessTest, AnExportsFileThatStaysEmptyIsRemoved) {
    struct Row {
        bool isThereBefore;
        const char* content;
        bool stays;
    };
    for (const Row& row : {Row{false, "", false}, Row{false, "pictures", true}, Row{true, "", true}}) {
        const mediaworker::test::TemporaryFolder folder;
        const auto file = folder / "film.mp4";
        if (row.isThereBefore) {
            mediaworker::test::writeFile(file, "");
        }
        ASSERT_TRUE(worker_->start(ExportJob{.url = QStringLiteral("exit:1"),
                                             .durationMs = 1,
                                             .outputPath = QString::fromStdString(file.string())}));
        mediaworker::test::writeFile(file, row.content); // in the worker's place
        ASSERT_TRUE(waitForEnd());
        EXPECT_EQ(std::filesystem::exists(file), row.stays) << row.content;
    }
}

TEST_F(WorkerProcessTest, OptionsThatAreGivenAsTheyAreComeBeforeTheJobs) {
    const QString name = QLatin1String(kOptionsVariable);
    worker_->setExtraEnvironment({{name, QStringLiteral("new=thing")}});
    ASSERT_TRUE(start("env:MEDIAWORKER_OPTIONS"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(log_, QStringList{QStringLiteral("env: new=thing")});
}

TEST_F(WorkerProcessTest, ANullValueTakesAVariableAway) {
    const OwnOptions own("flv=strict");
    qputenv("MW_Y", "ours");
    worker_->setExtraEnvironment({{QLatin1String(kOptionsVariable), {}}, {QStringLiteral("MW_Y"), {}}});
    ASSERT_TRUE(start("has:MEDIAWORKER_OPTIONS;has:MW_Y;has:PATH"));
    ASSERT_TRUE(waitForEnd());
    qunsetenv("MW_Y");
    EXPECT_EQ(log_, (QStringList{QStringLiteral("has: no"), QStringLiteral("has: no"),
                                 QStringLiteral("has: yes")}));
}

TEST_F(WorkerProcessTest, TellsOnceThatThereIsNoSound) {
    ASSERT_TRUE(start("log:sound unavailable: nellymoser: no decoder;log:sound unavailable: x: y;exit:3"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(events_, (QStringList{QStringLiteral("no sound: nellymoser: no decoder"),
                                    QStringLiteral("finished 3")}));
    ASSERT_TRUE(start("exit:3"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(worker_->findings().soundUnavailable, QString()) << "it was the one's before";
    ASSERT_TRUE(start("log:sound unavailable: x: y;exit:3"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(events_.count(QStringLiteral("no sound: x: y")), 1);
}

TEST_F(WorkerProcessTest, MissesADeviceOnlyWhenSoundIsWanted) {
    const char* const script = "connect;hello;await;log:Failed to create audio output;await;exit:0";
    const QString noDevice = QStringLiteral("no sound: no sound device");
    for (const bool isWanted : {true, false}) {
        events_.clear();
        log_.clear();
        ASSERT_TRUE(start(script));
        worker_->setVolume(50);
        if (!isWanted) {
            worker_->stopAudio();
        }
        ASSERT_TRUE(eventually([this] { return !log_.isEmpty(); }));
        worker_->writeRaw("x");
        ASSERT_TRUE(waitForEnd());
        EXPECT_EQ(events_.count(noDevice), isWanted ? 1 : 0);
    }
}

TEST_F(WorkerProcessTest, FindsOutWhyTheResponseEnded) {
    ASSERT_TRUE(start("log:http failed: status 404 Not Found;flood:200;log:http reader finished;exit:3"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_FALSE(worker_->recentLog().contains(QStringLiteral("http failed: status 404 Not Found")));
    EXPECT_EQ(exitReason(worker_->mode(), 3, false, worker_->findings()),
              QStringLiteral("the server answered 404 Not Found"));
    ASSERT_TRUE(start("exit:3"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_FALSE(worker_->findings().isResponseFailed()) << "it was the one's before";
}

TEST_F(WorkerProcessTest, RunsTheWorkerUnderAPrefix) {
    if (platform::kIsWindows) {
        GTEST_SKIP() << "Windows has no program that runs another one";
    }
    worker_->setProgramPrefix({QStringLiteral("env"), QStringLiteral("MW_X=prefixed")});
    ASSERT_TRUE(start("env:MW_X;exit:4"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(log_, QStringList{QStringLiteral("env: prefixed")});
    EXPECT_EQ(events_, QStringList{QStringLiteral("finished 4")});
}

TEST_F(WorkerProcessTest, ReadsTheLogWithALastLineWithoutNewline) {
    ASSERT_TRUE(start("log:first;say:Socket error: gone;exit:0"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(log_, (QStringList{QStringLiteral("first"), QStringLiteral("Socket error: gone")}));
    EXPECT_EQ(worker_->recentLog(), log_);
    EXPECT_EQ(events_, kEnded0);
}

TEST_F(WorkerProcessTest, KeepsOnlyTheEndOfALongLog) {
    ASSERT_TRUE(start("flood:5000;log:last;exit:0"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(log_.size(), 5001);
    EXPECT_LE(worker_->recentLog().size(), 100);
    EXPECT_EQ(worker_->recentLog().last(), QStringLiteral("last"));
}

TEST_F(WorkerProcessTest, TellsAProgramThatCannotRun) {
    worker_->setProgram(QStringLiteral("/nowhere/mediaworker"));
    ASSERT_TRUE(start("x"));
    ASSERT_TRUE(waitForEvent(QStringLiteral("startFailed")));
    EXPECT_FALSE(worker_->isRunning());
    EXPECT_FALSE(worker_->errorString().isEmpty());
    worker_->setProgram(QStringLiteral(FAKE_WORKER));
    ASSERT_TRUE(start("exit:0")) << "the object is as good as new";
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(events_, (QStringList{QStringLiteral("startFailed"), QStringLiteral("finished 0")}));
}

TEST_F(WorkerProcessTest, RefusesASecondWorker) {
    ASSERT_TRUE(start("wait:100000"));
    EXPECT_FALSE(start("exit:0"));
    EXPECT_FALSE(worker_->errorString().isEmpty());
}

TEST_F(WorkerProcessTest, TellsWhenNobodyConnects) {
    worker_->setConnectTimeout(milliseconds(50));
    ASSERT_TRUE(start("wait:100000"));
    ASSERT_TRUE(waitForEvent(QStringLiteral("connectTimedOut")));
    EXPECT_TRUE(worker_->isRunning());
    EXPECT_FALSE(worker_->isConnected());
    worker_->kill();
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(events_.last(), QStringLiteral("crashed"));
}

TEST_F(WorkerProcessTest, TellsAWorkerThatDiesBeforeItConnects) {
    ASSERT_TRUE(start("crash"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(events_, QStringList{QStringLiteral("crashed")});
}

TEST_F(WorkerProcessTest, TellsAClosedLinkOfAWorkerThatLives) {
    ASSERT_TRUE(start("connect;hello;drop;wait:100000"));
    ASSERT_TRUE(waitForEvent(QStringLiteral("linkClosed")));
    EXPECT_TRUE(worker_->isRunning());
    EXPECT_FALSE(worker_->isConnected());
    EXPECT_FALSE(worker_->writeRaw("x"));
}

TEST_F(WorkerProcessTest, AWorkerThatServesEndsWhenTheLinkIsDropped) {
    ASSERT_TRUE(start("connect;hello;serve"));
    ASSERT_TRUE(waitForEvent(QStringLiteral("connected")));
    worker_->disconnectLink();
    EXPECT_FALSE(worker_->isConnected());
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(events_.last(), QStringLiteral("finished 0"));
}

TEST_F(WorkerProcessTest, TerminateEndsTheWorker) {
    if (platform::kIsWindows) {
        GTEST_SKIP() << "Windows asks programs with windows only";
    }
    ASSERT_TRUE(start("connect;hello;serve"));
    ASSERT_TRUE(waitForEvent(QStringLiteral("connected")));
    worker_->terminate();
    EXPECT_TRUE(worker_->waitForFinished(milliseconds(kLimitMs)));
    EXPECT_EQ(events_.last(), QStringLiteral("crashed"));
}

// Nothing is lost though they are asked for in one go, and before the worker has connected.
TEST_F(WorkerProcessTest, EveryCommandArrivesInOrder) {
    ASSERT_TRUE(start("wait:50;connect;hello;serve"));
    EXPECT_TRUE(worker_->setVolume(30));
    EXPECT_TRUE(worker_->setVolume(80));
    EXPECT_TRUE(worker_->pause());
    EXPECT_TRUE(worker_->resume());
    EXPECT_TRUE(worker_->stopAudio());
    EXPECT_TRUE(worker_->setVolume(250));
    ASSERT_TRUE(eventually([this] { return taken().size() >= 5; }));
    EXPECT_EQ(taken(), (QStringList{QStringLiteral("05040050000000"), QStringLiteral("060000"),
                                    QStringLiteral("070000"), QStringLiteral("090000"),
                                    QStringLiteral("05040064000000")}));
}

TEST_F(WorkerProcessTest, CommandsReachAWorkerThatStoodStill) {
    ASSERT_TRUE(start("connect;hello;wait:700;serve"));
    EXPECT_TRUE(worker_->pause());
    EXPECT_TRUE(worker_->resume());
    EXPECT_TRUE(worker_->stopAudio());
    ASSERT_TRUE(eventually([this] { return taken().contains(QStringLiteral("090000")); }));
    EXPECT_EQ(taken(),
              (QStringList{QStringLiteral("060000"), QStringLiteral("070000"), QStringLiteral("090000")}));
}

TEST_F(WorkerProcessTest, RawBytesGoOutAtOnce) {
    ASSERT_TRUE(start("connect;hello;serve"));
    EXPECT_FALSE(worker_->writeRaw("x")) << "nobody is there yet";
    ASSERT_TRUE(waitForEvent(QStringLiteral("connected")));
    EXPECT_TRUE(worker_->writeRaw(QByteArray::fromHex("080100aa")));
    ASSERT_TRUE(eventually([this] { return !taken().isEmpty(); }));
    EXPECT_EQ(taken(), QStringList{QStringLiteral("080100aa")});
}

TEST_F(WorkerProcessTest, CommandsWithoutAWorkerAreRefused) {
    EXPECT_FALSE(worker_->setVolume(1));
    EXPECT_FALSE(worker_->pause());
    EXPECT_FALSE(worker_->resume());
    EXPECT_FALSE(worker_->stopAudio());
    worker_->kill();
    worker_->terminate();
    worker_->disconnectLink();
    EXPECT_TRUE(worker_->waitForFinished(milliseconds(0)));
}

TEST_F(WorkerProcessTest, PicturesCanBeReadWhenTheirMessageComes) {
    ASSERT_TRUE(start("connect;hello;picture:32x16;wait:100;picture:64x48;wait:100000"));
    ASSERT_TRUE(waitForEvent(QStringLiteral("format")));
    const auto first = worker_->frames()->read();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->size(), QSize(32, 16));
    ASSERT_TRUE(eventually([this] { return events_.count(QStringLiteral("format")) == 2; }));
    const auto second = worker_->frames()->read();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->size(), QSize(64, 48));
}

TEST_F(WorkerProcessTest, TheLastPictureOutlivesTheWorker) {
    ASSERT_TRUE(start("connect;hello;picture:32x16;crash"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_TRUE(worker_->frames()->read());
}

TEST_F(WorkerProcessTest, AWorkerKilledWithTheSemaphoreInItsHandsGivesItBack) {
    ASSERT_TRUE(start("connect;hello;picture:32x16;hold;log:held;wait:100000"));
    ASSERT_TRUE(eventually([this] { return log_.contains(QStringLiteral("held")); }));
    EXPECT_FALSE(worker_->frames()->read(milliseconds(20)));
    worker_->kill();
    ASSERT_TRUE(waitForEnd());
    EXPECT_TRUE(worker_->frames()->read(milliseconds(20)));
}

TEST_F(WorkerProcessTest, OnlyTheFirstConnectionCounts) {
    ASSERT_TRUE(start("connect;hello;serve"));
    ASSERT_TRUE(waitForEvent(QStringLiteral("connected")));
    QLocalSocket second;
    second.connectToServer(worker_->serverName());
    EXPECT_FALSE(second.waitForConnected(100));
}

TEST_F(WorkerProcessTest, ASlotMayDropTheLinkInTheMiddleOfMessages) {
    QObject::connect(worker_.get(), &WorkerProcess::frame, worker_.get(), &WorkerProcess::disconnectLink);
    ASSERT_TRUE(start("connect;hello;send:01080028000000000000000108005000000000000000;serve"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_TRUE(events_.contains(QStringLiteral("frame 40")));
    EXPECT_FALSE(events_.contains(QStringLiteral("frame 80")));
}

TEST_F(WorkerProcessTest, ASlotMayStartTheNextWorker) {
    int left = 5;
    QObject::connect(worker_.get(), &WorkerProcess::finished, [&] {
        if (--left > 0) {
            EXPECT_TRUE(start("connect;hello;exit:0"));
        }
    });
    ASSERT_TRUE(start("connect;hello;exit:0"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(left, 0);
    EXPECT_EQ(events_.count(QStringLiteral("connected")), 5);
}

TEST_F(WorkerProcessTest, DestructionKillsAWorkerThatRuns) {
    ASSERT_TRUE(start("connect;hello;log:up;wait:100000"));
    ASSERT_TRUE(eventually([this] { return log_.contains(QStringLiteral("up")); }));
    const qint64 pid = worker_->processId();
    worker_.reset();
    EXPECT_FALSE(platform::isRunning(pid));
}

TEST_F(WorkerProcessTest, ManyWorkersInARowLeaveNothingBehind) {
    ASSERT_TRUE(start("connect;hello;picture:32x16;exit:0"));
    ASSERT_TRUE(waitForEnd());
    const int before = platform::openHandles();
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(start(i % 2 == 0 ? "connect;hello;picture:32x16;exit:0" : "connect;hello;hold;crash"));
        ASSERT_TRUE(waitForEnd());
        static_cast<void>(worker_->frames()->read(milliseconds(100)));
    }
    worker_.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_LE(platform::openHandles(), before);
    EXPECT_EQ(leftovers(), QStringList());
}
