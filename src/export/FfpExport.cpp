#include "export/FfpExport.h"

#include "base/Clock.h"
#include "base/ImmediateExit.h"
#include "base/Log.h"
#include "base/ParentDeath.h"
#include "ipc/SocketHandler.h"
#include "record/RecordingRules.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <system_error>
#include <thread>

namespace {

using namespace std::chrono_literals;

/// How long Qt's clean-up may take. It waits for a look-up of a host name that is under way, and a resolver
/// that gets no answer takes half a minute; the parent has been told "at once".
constexpr auto kLongestExit = 2s;
/// For the parent to get what was sent last: less, so that there is time for the clean-up.
constexpr auto kLongestDrain = 1s;
/// For a stream that stops: how often it is looked at what has not been written yet.
constexpr auto kKeepUpInterval = 250ms;

/// False when there is no thread for that.
bool limitExit(int code) {
    try {
        std::thread([code] {
            // Not by the process's clock: this runs while globals go.
            std::this_thread::sleep_for(kLongestExit);
            base::exitNow(code);
        }).detach();
        return true;
    } catch (const std::system_error& error) {
        base::logAt(__func__, error.what());
        return false;
    }
}

} // namespace

FfpExport::FfpExport(const QString& url, const QString& outputPath, int durationMs, const QString& serverName,
                     const ko_player::Options& options)
    : progress_(durationMs, options.length, ko_player::recordingRules(options.flv).standstill),
      explains_(options.explains) {
    base::logLine("url: ", url.toStdString());
    try {
        recorder_ = std::make_unique<ko_player::FileRecorder>(outputPath.toUtf8().toStdString(), options.flv,
                                                              progress_.exactEndMs(), options.mp4);
    } catch (const std::exception& error) {
        base::logLine("creating of muxer is failed with exc: ", error.what());
        std::exit(EXIT_FAILURE);
    }
    if (options.mp4 == ko_player::Mp4Policy::Safe) {
        connect(&keepUpTimer_, &QTimer::timeout, this, &FfpExport::keepUp);
        keepUpTimer_.start(kKeepUpInterval);
    }
    reader_.emplace();
    reader_->get(
        url, [this](const QByteArray& bytes) { onData(bytes); }, [this] { onFinished(); });
    connectLink(serverName);
}

FfpExport::~FfpExport() = default;

void FfpExport::connectLink(const QString& serverName) {
    // A connection that fails at once has failed before anybody listens: the recording goes on unwatched.
    link_ = new Corvane::Ipc::SocketHandler(serverName, this);
    connect(link_, &Corvane::Ipc::SocketHandler::error, this, [this](const QString& text) {
        if (!ending_) {
            base::logWithoutNewline("Socket error: ", text.toStdString());
        }
        endAlone();
    });
    connect(link_, &Corvane::Ipc::SocketHandler::newMessage, this, &FfpExport::onMessage);
    connect(link_, &Corvane::Ipc::SocketHandler::disconnected, this, &FfpExport::endAlone);
    if (keepUpTimer_.isActive() && link_->isConnected()) {
        base::surviveParent(); // the link tells, and there is a file to close
    }
}

void FfpExport::endAlone() {
    // Of a file that can be lost nearly all can be played; closed, all.
    if (keepUpTimer_.isActive() && recorder_ && !ending_) {
        static_cast<void>(recorder_->pushEofAndClose());
    }
    end(EXIT_FAILURE);
}

void FfpExport::onData(const QByteArray& bytes) {
    if (ending_) {
        return;
    }
    if (!recorder_) {
        end(EXIT_FAILURE);
        return;
    }
    if (!recorder_->consume(reinterpret_cast<const std::uint8_t*>(bytes.constData()),
                            static_cast<std::size_t>(bytes.size()))) {
        giveUp();
        return;
    }
    if (recorder_->isAtEnd()) {
        tell(progress_.complete());
        finish();
        return;
    }
    const std::int64_t dts = recorder_->maxVideoDts();
    const auto step = progress_.update(dts, base::steadyClock().now());
    if (step.isOver) {
        base::logLine("forced finishing when: ", dts,
                      step.stoodStill ? ", where time stands still; asked for: " : " > ",
                      progress_.durationMs());
        finish();
    } else {
        tell(step.percent);
    }
}

void FfpExport::keepUp() {
    if (!ending_ && recorder_ && !recorder_->keepUp(base::steadyClock().now())) {
        giveUp();
    }
}

void FfpExport::giveUp() {
    // That it could be closed makes the recording no better.
    static_cast<void>(recorder_->pushEofAndClose());
    recorder_.reset();
    end(EXIT_FAILURE);
}

void FfpExport::tell(std::optional<int> percent) {
    if (percent) {
        using namespace Corvane::Ipc;
        static_cast<void>(link_->send(makeMessage(message_type::kProgress, qint32{*percent})));
    }
}

void FfpExport::onFinished() {
    if (ending_) {
        return;
    }
    const std::string failure = failureText(reader_->responseEnd());
    if (explains_ && !failure.empty()) {
        base::logLine("http failed: ", failure);
    }
    base::logLine("http is finished, with dts: ", recorder_ ? recorder_->maxVideoDts() : 0);
    finish();
}

void FfpExport::finish() {
    const bool isComplete = recorder_ != nullptr && recorder_->pushEofAndClose();
    if (isComplete && explains_) {
        base::logLine("recorded: ", recorder_->recordedMs(), " ms, ",
                      recorder_->hasSound() ? "with sound" : "without sound");
    }
    recorder_.reset();
    end(isComplete ? EXIT_SUCCESS : EXIT_FAILURE);
}

void FfpExport::onMessage(const Corvane::Ipc::Message& message) {
    if (message.type == Corvane::Ipc::message_type::kFinish && !ending_) {
        finish();
    }
}

// This runs inside signals of the reply and of the link. The network has a thread, which must have ended
// before a clean-up of the process takes Qt's globals away from it, and it ends with the reader, which
// cannot be destroyed in the middle of its own signal. On Windows it would not end while data keep coming.
void FfpExport::end(int code) {
    if (ending_) {
        return;
    }
    ending_ = true;
    const bool isLimited = limitExit(code);
    QMetaObject::invokeMethod(
        this,
        [this, code, isLimited] {
            // Where the link is a pipe, what was written last may still be on its way.
            link_->waitUntilWritten(kLongestDrain);
            if (!isLimited) {
                base::exitNow(code);
            }
            base::exitOrderly(code, [this] { reader_.reset(); });
        },
        Qt::QueuedConnection);
}
