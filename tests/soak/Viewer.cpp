#include "Viewer.h"

#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <thread>

namespace mediaworker::soak {
namespace {

using namespace std::chrono_literals;
using parent::WorkerProcess;

constexpr double kSampleSeconds = 5;
constexpr std::size_t kMostFailures = 5;
constexpr int kReadEvery = 5; ///< pictures that are looked at: soaking is about time, not about copying

} // namespace

Viewer::Viewer(std::size_t stream, const Run& run)
    : stream_(stream), role_(roleOf(stream)), run_(run), random_(static_cast<unsigned>(stream) + 1) {
    worker_.setProgram(QStringLiteral(MEDIAWORKER_PROGRAM));
    worker_.setExtraEnvironment(run.environment);
    QObject::connect(&worker_, &WorkerProcess::connected, [this] { worker_.setVolume(50); });
    QObject::connect(&worker_, &WorkerProcess::frame, [this] { onFrame(); });
    QObject::connect(&worker_, &WorkerProcess::malformed, [this] { ++seen_.malformed; });
    QObject::connect(&worker_, &WorkerProcess::finished,
                     [this](int code, bool crashed) { onFinished(code, crashed); });
    QObject::connect(&worker_, &WorkerProcess::startFailed, [this](const QString& why) {
        seen_.failures.push_back("not started: " + why.toStdString());
    });
}

void Viewer::watch() {
    QEventLoop loop;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        tick();
        if (run_.isOver() && !worker_.isRunning()) {
            loop.quit();
        }
    });
    timer.start(100);
    loop.exec();
}

void Viewer::start() {
    isPaused_ = isEnding_ = wasKilled_ = false;
    usage_.clear();
    if (!worker_.start(parent::StreamJob{QString::fromStdString(run_.server + pathOf(stream_))})) {
        seen_.failures.push_back("not started: " + worker_.errorString().toStdString());
        return;
    }
    ++seen_.workers;
    nextAct_ = run_.seconds() + actAfter();
}

void Viewer::tick() {
    if (!worker_.isRunning()) {
        if (!run_.isOver() && seen_.failures.size() < kMostFailures) {
            start();
        }
        return;
    }
    const double now = run_.seconds();
    if (now >= nextSample_) {
        nextSample_ = now + kSampleSeconds;
        const Usage usage = usageOf(worker_.processId(), now);
        if (usage.threads > 0) {
            usage_.push_back(usage);
            seen_.peakMb = std::max(seen_.peakMb, usage.memoryMb);
        }
    }
    if (run_.isOver()) {
        if (!isEnding_) {
            isEnding_ = true;
            worker_.disconnectLink();
        }
        return;
    }
    if (now >= nextAct_) {
        act();
        nextAct_ = run_.seconds() + actAfter();
    }
}

double Viewer::actAfter() {
    return isPaused_ ? between(500, 6000) / 1000.0 : between(3000, 15000) / 1000.0;
}

void Viewer::act() {
    switch (role_) {
    case Role::Steady:
        break;
    case Role::Changing: {
        const auto hold = worker_.frames()->hold();
        std::this_thread::sleep_for(std::chrono::milliseconds(between(50, 900)));
        break;
    }
    case Role::Commanded:
        command();
        break;
    case Role::Broken:
        if (between(0, 3) == 0) {
            wasKilled_ = true;
            worker_.kill();
        } else if (between(0, 3) == 0) {
            isEnding_ = true;
            worker_.disconnectLink();
        }
        break;
    }
}

void Viewer::command() {
    if (isPaused_) {
        isPaused_ = !worker_.resume();
        return;
    }
    switch (between(0, 3)) {
    case 0:
        isPaused_ = worker_.pause();
        break;
    case 1:
        static_cast<void>(worker_.stopAudio());
        break;
    case 2:
        static_cast<void>(worker_.setVolume(between(0, 100)));
        break;
    default: // neither the link nor the log is read
        std::this_thread::sleep_for(std::chrono::milliseconds(between(500, 3000)));
    }
}

void Viewer::onFrame() {
    if (++seen_.shown % kReadEvery == 0) {
        seen_.read += worker_.frames()->withPicture([](const std::uint8_t*, int, int) {}) ? 1 : 0;
    }
}

void Viewer::onFinished(int code, bool crashed) {
    ++seen_.ends[crashed ? "killed" : std::to_string(code)];
    const bool isExpected = crashed ? wasKilled_ : codesOf(role_).contains(code) && (code != 0 || isEnding_);
    if (!isExpected && seen_.failures.size() < kMostFailures) {
        seen_.failures.push_back((crashed ? "by a signal" : "code " + std::to_string(code)) + " after " +
                                 std::to_string(run_.seconds()) + " s:\n" +
                                 worker_.recentLog().join(QLatin1Char('\n')).toStdString());
    }
    closeLife();
}

void Viewer::closeLife() {
    const Growth growth = growthOf(usage_);
    if (growth.hours > 0 && (seen_.growth.hours <= 0 || growth.memoryMb > seen_.growth.memoryMb)) {
        seen_.growth = growth;
    }
}

} // namespace mediaworker::soak
