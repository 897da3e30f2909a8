#include "Player.h"

#include "Clips.h"
#include "Table.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>

#include <algorithm>

namespace mediaworker::bench {

bool waitFor(const std::function<bool()>& isDone, std::chrono::seconds limit) {
    const QDeadlineTimer deadline(limit);
    while (!isDone() && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 50);
    }
    return isDone();
}

Player::Player(const std::string& url) {
    worker_.setProgram(QStringLiteral(MEDIAWORKER_PROGRAM));
    QObject::connect(&worker_, &parent::WorkerProcess::connected, [this] { connected_ = Clock::now(); });
    QObject::connect(&worker_, &parent::WorkerProcess::frame, [this](qint64 pts) {
        shown_.push_back({Clock::now(), pts});
        peakMb_ = std::max(peakMb_, shown_.size() % kFps == 0 ? memory("VmHWM") : 0.0);
    });
    QObject::connect(&worker_, &parent::WorkerProcess::finished, [this](int code, bool) { code_ = code; });
    started_ = Clock::now();
    if (!worker_.start(parent::StreamJob{QString::fromStdString(url), {}, {}})) {
        fail("the worker does not start: " + worker_.errorString().toStdString());
    }
}

void Player::waitForFrames(std::size_t count) {
    if (!waitFor([&] { return shown_.size() >= count || code_; }) || shown_.size() < count) {
        fail("pictures are missing: " + std::to_string(shown_.size()) + "\n" +
             worker_.recentLog().join(QLatin1Char('\n')).toStdString());
    }
}

void Player::waitForEnd() {
    if (!waitFor([&] { return code_.has_value(); })) {
        fail("the worker does not end");
    }
}

void Player::end() {
    worker_.disconnectLink();
    worker_.waitForFinished(std::chrono::seconds(10));
}

} // namespace mediaworker::bench
