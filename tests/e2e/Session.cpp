#include "Session.h"

#include "support/Platform.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <stdexcept>

namespace mediaworker::test {

Session::Session() : Session(Options{}) {}

Session::Session(const Options& options) : options_(options) {
    using parent::WorkerProcess;
    worker_.setProgram(QString::fromStdString(options.program));
    worker_.setProgramPrefix(options.prefix);
    // Bare, unless a test asks for something.
    QMap<QString, QString> variables{{QLatin1String(parent::kOptionsVariable), {}}};
    for (const auto& [name, value] : options.environment) {
        variables.insert(QString::fromStdString(name), QString::fromStdString(value));
    }
    if (areWorkersConfined()) {
        QString& asked = variables[QLatin1String(parent::kOptionsVariable)];
        asked += QLatin1String(asked.isEmpty() ? "sandbox=on" : ",sandbox=on");
    }
    worker_.setExtraEnvironment(variables);
    QObject::connect(&worker_, &WorkerProcess::connected, [this](qint64 pid) { connectedPid_ = pid; });
    QObject::connect(&worker_, &WorkerProcess::frame, [this](qint64 ptsMs) { takeFrame(ptsMs); });
    QObject::connect(&worker_, &WorkerProcess::formatChanged, [this] { ++formatChanges_; });
    QObject::connect(&worker_, &WorkerProcess::malformed, [this] { ++malformed_; });
    QObject::connect(&worker_, &WorkerProcess::absoluteTime, [this](qint64 value) {
        positions_.push_back({.absoluteTime = value, .framesBefore = shown_.size()});
    });
    QObject::connect(&worker_, &WorkerProcess::fragment, [this](qint64 position, qint64 duration) {
        positions_.push_back(
            {.fragmentPosition = position, .fragmentDuration = duration, .framesBefore = shown_.size()});
    });
    QObject::connect(&worker_, &WorkerProcess::logLine, [this](const QString& line) {
        log_.push_back({line.toStdString(), Clock::now()});
    });
    QObject::connect(&worker_, &WorkerProcess::startFailed,
                     [this](const QString& why) { startFailure_ = why.toStdString(); });
    QObject::connect(&worker_, &WorkerProcess::finished, [this](int exitCode, bool crashed) {
        endedAt_ = Clock::now();
        exitCode_ = crashed ? -1 : exitCode;
    });
}

void Session::start(const std::string& url) {
    parent::StreamJob job;
    job.url = QString::fromStdString(url);
    job.proxyUrl = QString::fromStdString(options_.proxyUrl);
    job.proxyType = QString::fromStdString(options_.proxyType);
    if (!worker_.start(job)) {
        throw std::runtime_error("the worker cannot be started: " + worker_.errorString().toStdString());
    }
}

void Session::takeFrame(qint64 ptsMs) {
    Shown shown;
    shown.ptsMs = ptsMs;
    shown.when = Clock::now();
    if (options_.readsPictures && worker_.frames() != nullptr) {
        shown.hasPicture =
            worker_.frames()->withPicture([&](const std::uint8_t* bgra, int width, int height) {
                const BgraView view{bgra, width, height, std::ptrdiff_t{4} * width};
                shown.widthPx = width;
                shown.heightPx = height;
                shown.numbers = readFrameNumbers(view);
                shown.patchError = options_.readsPatches ? largestPatchError(view) : 0;
            });
    }
    shown_.push_back(shown);
}

bool Session::waitUntil(const std::function<bool()>& isDone, std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    // A wake-up now and then, for conditions that no event announces.
    QTimer ticks;
    ticks.start(5);
    while (!isDone()) {
        if (startFailure_) { // nothing will ever come
            throw std::runtime_error("the worker cannot be started: " + *startFailure_);
        }
        if (Clock::now() > deadline) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

bool Session::waitForFrames(std::size_t count, std::chrono::milliseconds limit) {
    return waitUntil([&] { return shown_.size() >= count || exitCode_; }, limit) && shown_.size() >= count;
}

bool Session::waitForLine(const std::string& line, int count, std::chrono::milliseconds limit) {
    return waitUntil([&] { return countLines(line) >= count || exitCode_; }, limit) &&
           countLines(line) >= count;
}

std::optional<int> Session::waitForExit(std::chrono::milliseconds limit) {
    waitUntil([&] { return exitCode_.has_value(); }, limit);
    return exitCode_;
}

void Session::listen(std::chrono::milliseconds duration) {
    waitUntil([] { return false; }, duration);
}

std::vector<std::int64_t> Session::stamps() const {
    std::vector<std::int64_t> result;
    for (const Shown& shown : shown_) {
        result.push_back(shown.ptsMs);
    }
    return result;
}

std::optional<int> Session::lastPictureNumber() {
    std::optional<int> number;
    frames().withPicture([&](const std::uint8_t* bgra, int width, int height) {
        number = readFrameNumber({bgra, width, height, std::ptrdiff_t{4} * width});
    });
    return number;
}

int Session::countLines(const std::string& line) const {
    return static_cast<int>(
        std::count_if(log_.begin(), log_.end(), [&](const LogLine& logged) { return logged.text == line; }));
}

bool Session::hasLineBeginning(const std::string& begin) const {
    return std::any_of(log_.begin(), log_.end(),
                       [&](const LogLine& logged) { return logged.text.starts_with(begin); });
}

std::string Session::logText() const {
    std::string text;
    for (const LogLine& line : log_) {
        text += line.text + "\n";
    }
    return text;
}

std::int64_t Session::residentBytes() const {
    return platform::residentBytes(worker_.processId());
}

bool areWorkersConfined() {
    return qEnvironmentVariableIsSet("MEDIAWORKER_TEST_SANDBOX");
}

std::optional<std::string> confinementObstacle() {
    Session asked({.environment = {{parent::kOptionsVariable, "sandbox=required"}}});
    asked.start("http://127.0.0.1:1/nothing.flv");
    asked.waitForExit();
    for (const LogLine& line : asked.log()) {
        if (line.text.starts_with("sandbox: this system does not have")) {
            return line.text;
        }
    }
    return std::nullopt;
}

FlvOptions lasting(const Clip& clip, std::chrono::milliseconds duration) {
    FlvOptions options;
    options.repeats = static_cast<int>((duration.count() + clip.durationMs() - 1) / clip.durationMs());
    return options;
}

} // namespace mediaworker::test
