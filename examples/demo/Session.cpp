#include "Session.h"

#include "Terminal.h"
#include "Words.h"

#include "support/media/TestPicture.h"

#include <QDir>
#include <QImage>

#include <algorithm>
#include <utility>

namespace mediaworker::demo {

namespace {

constexpr int kEndWaitMs = 5000;
// A worker gives up by itself after 13 s without a picture; one that does not is broken.
constexpr int kFirstPictureMs = 20000;

double seconds(qint64 ms) {
    return static_cast<double>(ms) / 1000;
}

} // namespace

Session::Session(SessionOptions options) : options_(std::move(options)) {
    worker_.setProgram(options_.program);
    connect(&worker_, &parent::WorkerProcess::connected, this, [this](qint64 pid) {
        terminal::printLine(QStringLiteral("worker %1 is connected").arg(pid));
        if (options_.hasSound) {
            worker_.setVolume(60);
        }
    });
    connect(&worker_, &parent::WorkerProcess::frame, this, &Session::onFrame);
    connect(&worker_, &parent::WorkerProcess::finished, this, &Session::onFinished);
    connect(&worker_, &parent::WorkerProcess::startFailed, this,
            [this](const QString& why) { end(QStringLiteral("the worker cannot be started: ") + why); });
    connect(&worker_, &parent::WorkerProcess::connectTimedOut, this,
            [this] { end(QStringLiteral("the worker does not connect")); });
    connect(&worker_, &parent::WorkerProcess::malformed, this, [this](int type, int size) {
        problems_ << QStringLiteral("the worker sent a message of type %1 with %2 bytes").arg(type).arg(size);
    });
    connect(&progressTimer_, &QTimer::timeout, this, &Session::printProgress);
    endTimer_.setSingleShot(true);
    endTimer_.setTimerType(Qt::PreciseTimer);
    connect(&endTimer_, &QTimer::timeout, this, [this] {
        isEnding_ = true;
        worker_.disconnectLink();
        watchdog_.start(kEndWaitMs);
    });
    watchdog_.setSingleShot(true);
    connect(&watchdog_, &QTimer::timeout, this, [this] {
        end(isEnding_ ? QStringLiteral("the worker does not end")
                      : QStringLiteral("no picture within %1 seconds").arg(kFirstPictureMs / 1000));
    });
}

void Session::start() {
    if (!QDir().mkpath(options_.picturesFolder)) {
        end(QStringLiteral("cannot make the folder ") + options_.picturesFolder);
        return;
    }
    clock_.start();
    watchdog_.start(kFirstPictureMs);
    if (!worker_.start(parent::StreamJob{options_.url})) {
        end(worker_.errorString());
        return;
    }
    progressTimer_.start(terminal::progressIntervalMs());
}

void Session::onFrame(qint64 ptsMs) {
    if (isEnding_) {
        return;
    }
    if (shown_.empty()) {
        terminal::printLine(
            QStringLiteral("first picture after %1 s").arg(seconds(clock_.elapsed()), 0, 'f', 2));
        watchdog_.stop();
        endTimer_.start(options_.seconds * 1000);
    }
    shown_.push_back({clock_.nsecsElapsed(), ptsMs});
    if (const auto delay = delayMs()) {
        delays_.push_back(*delay);
    }
    const bool isRead = worker_.frames()->withPicture([&](const std::uint8_t* bgra, int width, int height) {
        size_ = QSize(width, height);
        checkPicture(bgra, width, height, ptsMs);
    });
    if (!isRead) {
        ++unreadable_;
    }
    // Spread over the session: one in the middle of each part of it.
    const double part =
        static_cast<double>(clock_.nsecsElapsed() - shown_.front().atNs) / 1e9 / options_.seconds;
    if (snapshots_.size() < options_.snapshots && part * options_.snapshots >= snapshots_.size() + 0.5) {
        saveSnapshot(ptsMs);
    }
}

// A picture that is read after its message may be the next one already, but never an older one, and never
// parts of two.
void Session::checkPicture(const std::uint8_t* bgra, int width, int height, qint64 ptsMs) {
    if (!options_.frameNumberAt) {
        return;
    }
    const auto number = test::readFrameNumber({bgra, width, height, static_cast<std::ptrdiff_t>(width) * 4});
    if (!number || *number < options_.frameNumberAt(ptsMs)) {
        ++unreadable_;
    }
}

void Session::saveSnapshot(qint64 ptsMs) {
    const QString file = QDir(options_.picturesFolder)
                             .filePath(QStringLiteral("%1-%2-at-%3-ms.png")
                                           .arg(options_.snapshotName)
                                           .arg(snapshots_.size() + 1)
                                           .arg(ptsMs));
    const auto picture = worker_.frames()->read();
    if (picture && picture->save(file)) {
        snapshots_ << file;
    } else {
        problems_ << QStringLiteral("cannot save ") + file;
        snapshots_ << QString();
    }
}

// Without a camera that can be asked, the first picture is the measure: how far the later ones fall behind
// it.
std::optional<qint64> Session::delayMs() const {
    if (shown_.empty()) {
        return std::nullopt;
    }
    const Shown& last = shown_.back();
    if (options_.filmedMs) {
        const auto filmed = options_.filmedMs();
        return filmed ? std::optional<qint64>(*filmed - last.ptsMs) : std::nullopt;
    }
    return (last.atNs - shown_.front().atNs) / 1000000 - (last.ptsMs - shown_.front().ptsMs);
}

void Session::printProgress() {
    if (shown_.empty()) {
        return;
    }
    constexpr qint64 kSecondNs = 1000000000;
    const qint64 now = clock_.nsecsElapsed();
    const auto recent =
        std::count_if(shown_.begin(), shown_.end(), [&](const Shown& s) { return s.atNs > now - kSecondNs; });
    terminal::showProgress(QStringLiteral("frames %1   fps %2   position %3 s   delay %4 s")
                               .arg(shown_.size(), 5)
                               .arg(recent, 3)
                               .arg(seconds(shown_.back().ptsMs), 7, 'f', 2)
                               .arg(seconds(delays_.empty() ? 0 : delays_.back()), 6, 'f', 2));
}

void Session::onFinished(int exitCode, bool crashed) {
    // A stream that ended early leaves its last picture.
    if (!shown_.empty() && snapshots_.empty()) {
        saveSnapshot(shown_.back().ptsMs);
    }
    end(whatIsWrong(exitCode, crashed));
}

QString Session::whatIsWrong(int exitCode, bool crashed) const {
    // A stream of the user's may end whenever it likes (and a local file ends with no more pictures); the
    // camera of this program films longer than we watch.
    const int endOfInput = options_.url.startsWith(QStringLiteral("file")) ? 2 : 3;
    const bool streamEnded = !crashed && exitCode == endOfInput && !options_.filmedMs;
    if (shown_.empty() || (!isEnding_ && !streamEnded)) {
        return QStringLiteral("the worker ended: ") + wordsAboutTheEnd(worker_, exitCode, crashed);
    }
    if (isEnding_ && (crashed || exitCode != 0)) {
        return QStringLiteral("the worker was asked to end, but: ") +
               wordsAboutTheEnd(worker_, exitCode, crashed);
    }
    if (unreadable_ > 0) {
        return QStringLiteral("%1 pictures were torn, missing or older than announced").arg(unreadable_);
    }
    const qint64 lastMs = (shown_.back().atNs - shown_.front().atNs) / 1000000;
    if (options_.filmedMs && static_cast<double>(shown_.size()) < 0.8 * options_.frameNumberAt(lastMs)) {
        return QStringLiteral("only %1 pictures in %2 s").arg(shown_.size()).arg(seconds(lastMs));
    }
    return problems_.join(u'\n');
}

QString Session::summary() const {
    if (shown_.size() < 2) {
        return QStringLiteral("pictures: %1").arg(shown_.size());
    }
    std::vector<qint64> intervals;
    for (std::size_t i = 1; i < shown_.size(); ++i) {
        intervals.push_back(shown_[i].atNs - shown_[i - 1].atNs);
    }
    std::sort(intervals.begin(), intervals.end());
    const auto ms = [](qint64 ns) { return QString::number(static_cast<double>(ns) / 1e6, 'f', 1); };
    const double watched = static_cast<double>(shown_.back().atNs - shown_.front().atNs) / 1e9;
    QString text =
        QStringLiteral("pictures: %1 of %2x%3 in %4 s (%5 fps), interval median %6 ms, longest %7 ms")
            .arg(shown_.size())
            .arg(size_.width())
            .arg(size_.height())
            .arg(watched, 0, 'f', 1)
            .arg(static_cast<double>(shown_.size() - 1) / watched, 0, 'f', 1)
            .arg(ms(intervals[intervals.size() / 2]), ms(intervals.back()));
    if (!delays_.empty()) {
        std::vector<qint64> delays = delays_;
        std::sort(delays.begin(), delays.end());
        text += QStringLiteral("\ndelay:    median %1 s behind the %2")
                    .arg(seconds(delays[delays.size() / 2]), 0, 'f', 2)
                    .arg(options_.filmedMs ? QStringLiteral("camera") : QStringLiteral("first picture"));
    }
    for (const QString& file : snapshots_) {
        text += QStringLiteral("\nsaved:    ") + file;
    }
    return text;
}

void Session::end(const QString& problem) {
    if (std::exchange(isDone_, true)) {
        return;
    }
    progressTimer_.stop();
    endTimer_.stop();
    watchdog_.stop();
    worker_.kill();
    if (!shown_.empty()) {
        terminal::printLine(summary());
    }
    if (!problem.isEmpty()) {
        terminal::printLine(QStringLiteral("FAILED: ") + problem);
    }
    Q_EMIT done(problem.isEmpty() ? 0 : 1);
}

} // namespace mediaworker::demo
