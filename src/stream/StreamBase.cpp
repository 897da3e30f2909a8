#include "stream/StreamBase.h"

#include "base/Clock.h"
#include "base/ImmediateExit.h"
#include "base/Log.h"
#include "base/ThreadEntry.h"
#include "ipc/SocketHandler.h"
#include "stream/ExitCodes.h"
#include "stream/Prefault.h"
#include "stream/PrivateFile.h"
#include "stream/ReserveFileMemory.h"

#include <QDir>
#include <QtEndian>

#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <utility>

namespace Ostra {
namespace {

constexpr std::chrono::seconds kLongestDrain{1};
/// Beyond any picture that people send, and little enough to be spent on a stream that tells nonsense.
constexpr std::uint64_t kMostExpectedBytes = 64 << 20;

} // namespace

namespace message_type = Corvane::Ipc::message_type;
using Corvane::Ipc::makeMessage;

StreamBase::StreamBase(const QString& channelName, const QString& serverName,
                       const std::function<void()>& beforeThreads)
    : semaphore_(channelName, 1, QSystemSemaphore::Open) {
    file_.setFileName(QDir::tempPath() + QDir::separator() + channelName);
    createPrivateFile(file_.fileName());
    file_.open(QIODevice::ReadWrite); // a failure shows when the file is mapped
    if (beforeThreads) {
        beforeThreads();
    }

    // Made by the thread that it lives on: where the link is a named pipe, Qt reads it on the thread that
    // opened it, whatever thread the socket belongs to later.
    // The promise is the thread's as well: it may still be busy with it when the wait here is over.
    const auto made = std::make_shared<std::promise<void>>();
    connect(
        &linkThread_, &QThread::started, this,
        [this, serverName, made] {
            openLink(serverName);
            made->set_value();
        },
        Qt::DirectConnection);
    linkThread_.start();
    if (!linkThread_.isRunning()) {
        base::logLine("can't start the thread of the link");
        base::exitNow(exit_code::kFailure);
    }
    made->get_future().wait();
}

void StreamBase::openLink(const QString& serverName) {
    base::enterThread("link");
    link_ = std::make_unique<Corvane::Ipc::SocketHandler>(serverName, nullptr);
    connect(link_.get(), &Corvane::Ipc::SocketHandler::newMessage, this, &StreamBase::onMessage,
            Qt::DirectConnection);
    connect(
        link_.get(), &Corvane::Ipc::SocketHandler::error, this,
        [](const QString& text) {
            base::logWithoutNewline("Socket error: ", text.toStdString());
            base::exitNow(exit_code::kParentGone);
        },
        Qt::DirectConnection);
    connect(
        link_.get(), &Corvane::Ipc::SocketHandler::disconnected, this,
        [] { base::exitNow(exit_code::kParentGone); }, Qt::DirectConnection);
}

StreamBase::~StreamBase() {
    stopLinkThread();
    file_.close(); // unmaps as well
}

void StreamBase::expectPicture(int width, int height) {
    const std::uint64_t bytes =
        std::uint64_t{static_cast<std::uint32_t>(width)} * static_cast<std::uint32_t>(height) * 4 +
        kPictureOffset + kReservedBytes;
    // What an earlier worker left may still be shown by the parent.
    if (bytes <= kMostExpectedBytes && file_.isOpen() && file_.size() == 0) {
        reserveFileMemory(file_.handle(), bytes);
    }
}

void StreamBase::setupPicture(std::uint32_t width, std::uint32_t height) {
    const std::uint32_t fileBytes = width * height * 4 + kPictureOffset + kReservedBytes;
    const std::uint64_t pictureBytes = std::uint64_t{width} * height * 4;
    if (mapping_ != nullptr) {
        file_.unmap(mapping_);
        mapping_ = nullptr;
    }
    semaphore_.acquire();
    const auto oldBytes = static_cast<std::uint64_t>(file_.size());
    // Where a file that somebody maps cannot be made smaller, it stays as large as it is: the header counts.
    file_.resize(fileBytes);
    // A picture beyond 4 GiB wraps the size around; the file would be too small for it.
    if (const qint64 size = file_.size(); pictureBytes <= fileBytes && size >= fileBytes) {
        prefaultZeros(file_.handle(), oldBytes, fileBytes);
        mapping_ = file_.map(0, size);
    }
    if (mapping_ == nullptr) {
        semaphore_.release(1);
        base::logLine("can't map the frame file: ", file_.fileName().toStdString(), ": ",
                      file_.errorString().toStdString());
        base::exitNow(exit_code::kFailure);
    }
    prefault(mapping_, fileBytes);
    qToLittleEndian(width, mapping_);
    qToLittleEndian(height, mapping_ + sizeof width);
    semaphore_.release(1);
    sendFormat();
}

ko_player::ResourceGuard StreamBase::lockPicture() {
    return ko_player::ResourceGuard([this] { semaphore_.acquire(); }, [this] { semaphore_.release(1); });
}

void StreamBase::sendFrame(std::int64_t pts) {
    link_->send(makeMessage(message_type::kFrame, qint64{pts}));
}

void StreamBase::sendAbsoluteTime(std::int64_t time) {
    link_->send(makeMessage(message_type::kAbsoluteTime, qint64{time}));
}

void StreamBase::sendFragment(std::int64_t position, std::int64_t duration) {
    link_->send(makeMessage(message_type::kFragment, qint64{position}, qint64{duration}));
}

void StreamBase::sendFormat() {
    link_->send(message_type::kFormat);
}

void StreamBase::openCommands() {
    QMetaObject::invokeMethod(
        link_.get(),
        [this] {
            commands_ = Commands::Open;
            for (const auto& message : std::exchange(early_, {})) {
                dispatch(message);
            }
        },
        Qt::QueuedConnection);
}

void StreamBase::closeCommands() {
    commands_ = Commands::Dropped;
}

void StreamBase::runOnLinkThread(const std::function<void()>& function) {
    if (QThread::currentThread() == &linkThread_ || linkThread_.isFinished()) {
        function();
        return;
    }
    QMetaObject::invokeMethod(link_.get(), function, Qt::BlockingQueuedConnection);
}

void StreamBase::drainLink() {
    struct Drained {
        std::mutex mutex;
        std::condition_variable changed;
        bool isDone = false; ///< guarded by mutex
    };
    // Shared, since the link thread may come to it when nobody waits any more.
    const auto drained = std::make_shared<Drained>();
    QMetaObject::invokeMethod(
        link_.get(),
        [this, drained] {
            link_->waitUntilWritten(kLongestDrain);
            const std::lock_guard lock(drained->mutex);
            drained->isDone = true;
            drained->changed.notify_all();
        },
        Qt::QueuedConnection);
    base::Clock& clock = base::steadyClock();
    std::unique_lock lock(drained->mutex);
    clock.waitUntil(drained->changed, lock, clock.now() + kLongestDrain, [&] { return drained->isDone; });
}

void StreamBase::stopLinkThread() {
    if (link_) {
        // Emitted by the thread itself: the socket has to go where it lives.
        connect(
            &linkThread_, &QThread::finished, this, [this] { link_.reset(); }, Qt::DirectConnection);
    }
    linkThread_.quit();
    linkThread_.wait();
}

void StreamBase::onMessage(const Corvane::Ipc::Message& message) {
    if (commands_ == Commands::Open) {
        dispatch(message);
    } else if (commands_ == Commands::Kept) {
        early_.push_back(message);
    }
}

void StreamBase::dispatch(const Corvane::Ipc::Message& message) {
    // The type goes out as the character of that code.
    base::logLine("Command from parent process: ", static_cast<char>(message.type));
    switch (message.type) {
    case message_type::kVolume:
        // The data counts, not the size field: a packet of size 0 repeats the volume before it.
        if (message.data.size() == sizeof(quint32)) {
            startAudio();
            setVolume(static_cast<int>(qFromLittleEndian<quint32>(message.data.constData())));
        }
        break;
    case message_type::kPause:
        setPause(true);
        break;
    case message_type::kResume:
        setPause(false);
        break;
    case message_type::kStopAudio:
        stopAudio();
        break;
    default:
        base::logLine("Unknown command");
    }
}

} // namespace Ostra
