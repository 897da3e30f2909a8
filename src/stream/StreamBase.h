#pragma once

#include "ipc/Message.h"
#include "records/MediaParams.h"
#include "records/ResourceGuard.h"

#include <QFile>
#include <QObject>
#include <QString>
#include <QSystemSemaphore>
#include <QThread>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Corvane::Ipc {
class SocketHandler;
}

namespace Ostra {

/// The worker's side of what it shares with its parent: the frame file, the semaphore that guards it, and the
/// link with its thread, on which the parent's commands are carried out.
///
/// The frame file: width and height, unsigned 32-bit little-endian; the picture, BGRA rows from top to bottom
/// without padding; 64 reserved bytes. Whoever reads or writes any of it holds the semaphore.
class StreamBase : public QObject {
    Q_OBJECT

public:
    static constexpr std::uint32_t kPictureOffset = 8;
    static constexpr std::uint32_t kReservedBytes = 64;
    static_assert(kReservedBytes >= ko_player::kPictureTailBytes, "the scaler writes into them");

    /// Opens the frame file of that name in the temporary directory and the semaphore of that name, and
    /// connects to the parent's server. A failed connection ends the process, except one that the platform
    /// reports at once: that is over before anybody listens, and the worker goes on without a parent. Ends
    /// the process with code 1 when the link's thread cannot be started.
    ///
    /// `beforeThreads` is called once, when file and semaphore are there and no thread has been started yet.
    StreamBase(const QString& channelName, const QString& serverName,
               const std::function<void()>& beforeThreads = {});
    StreamBase(const StreamBase&) = delete;
    StreamBase& operator=(const StreamBase&) = delete;
    ~StreamBase() override;

    // The parent's commands. Called from the link thread.
    virtual void setPause(bool paused) = 0;
    virtual void setVolume(int percent) = 0;
    virtual void stopAudio() = 0;
    virtual void startAudio() = 0;

    /// Reserves memory for such a picture (pixels, above zero) in a frame file that is still empty. Nobody
    /// sees that: the file stays empty until setupPicture(). A hint: failures and sizes beyond 64 MiB are
    /// ignored. Must be over before setupPicture() is called for the first time.
    void expectPicture(int width, int height);
    /// Renews the frame file for a picture of that size (pixels) and tells the parent. The file may stay
    /// larger than it has to be. Ends the process with code 1 when it is too small, or cannot be mapped.
    /// Called from the video output thread, like all that follow.
    void setupPicture(std::uint32_t width, std::uint32_t height);
    /// The picture's bytes. Call after setupPicture().
    [[nodiscard]] std::uint8_t* picture() const { return mapping_ + kPictureOffset; }
    /// Holds the semaphore while it lives.
    [[nodiscard]] ko_player::ResourceGuard lockPicture();

    // Messages to the parent. Thread-safe, and never wait for the socket.
    void sendFrame(std::int64_t pts);
    void sendAbsoluteTime(std::int64_t time);
    void sendFragment(std::int64_t position, std::int64_t duration);
    void sendFormat();

protected:
    /// Lets the parent's commands through. The link is at work before the derived object stands, so commands
    /// that come earlier are kept, and carried out now, in their order. Call once.
    void openCommands();
    /// Drops all commands from now on. Called from the link thread.
    void closeCommands();
    /// Runs the function on the link thread and returns when it has run; in place when called there. Must not
    /// be called while the link thread waits for the caller, which it never does.
    void runOnLinkThread(const std::function<void()>& function);
    /// Waits until the messages sent so far have been handed to the socket: one that was posted just before
    /// an immediate exit would be lost. Not for longer than a second, since a sound device may keep the link
    /// thread. Called from any thread but the link thread.
    void drainLink();
    /// Ends the link thread. A derived destructor has to call this, or closeCommands() before it, while
    /// everything that the commands need still stands.
    void stopLinkThread();

private:
    void openLink(const QString& serverName);
    void onMessage(const Corvane::Ipc::Message& message);
    void dispatch(const Corvane::Ipc::Message& message);

    QFile file_;
    std::uint8_t* mapping_ = nullptr; ///< video output thread
    QSystemSemaphore semaphore_;
    QThread linkThread_;
    std::unique_ptr<Corvane::Ipc::SocketHandler> link_; ///< lives on linkThread_

    // Link thread only.
    enum class Commands { Kept, Open, Dropped };
    Commands commands_ = Commands::Kept;
    std::vector<Corvane::Ipc::Message> early_;
};

} // namespace Ostra
