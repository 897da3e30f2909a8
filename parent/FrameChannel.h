#pragma once

#include "parent/SharedLock.h"

#include <QFile>
#include <QImage>
#include <QString>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace mediaworker::parent {

/// The frame file of one worker and the semaphore that guards it.
///
/// Make it before the worker starts and keep it until the worker is dead: it creates the semaphore, and
/// removes semaphore and file when it goes. The worker creates and sizes the file.
///
/// Nothing that a worker writes or leaves out can hurt the reader: a missing, short or empty file reads as
/// nothing, and a worker that stands still with the semaphore in its hands costs no more than the time limit.
/// Not thread-safe.
class FrameChannel {
public:
    /// Longer than any worker holds the semaphore (it converts one picture under it), shorter than people
    /// wait.
    static constexpr std::chrono::milliseconds kPatience{1000};

    /// Receives rows from top to bottom, width * 4 bytes each, pixels as blue, green, red, alpha. The bytes
    /// are valid, and stay as they are, only during the call; the worker waits meanwhile.
    using PictureReader = std::function<void(const std::uint8_t* bgra, int width, int height)>;

    /// Keeps the worker from touching the file as long as it lives. The channel must outlive it.
    class Hold {
    public:
        Hold() = default;
        Hold(Hold&& other) noexcept;            ///< takes over; the other one holds nothing then
        Hold& operator=(Hold&& other) noexcept; ///< lets go of its own, and takes over
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;
        ~Hold();

        /// Whether the semaphore was acquired in time.
        explicit operator bool() const noexcept { return lock_ != nullptr; }
        /// Gives the semaphore back now. Does nothing when it is not held.
        void release() noexcept;

    private:
        friend class FrameChannel;
        explicit Hold(SharedLock* lock) : lock_(lock) {}

        SharedLock* lock_ = nullptr;
    };

    /// A channel with a name of its own. @throws std::runtime_error when the system gives no semaphore.
    FrameChannel();
    /// A channel with that name; what an earlier process left under it is taken over.
    /// @throws std::runtime_error when the system gives no semaphore.
    explicit FrameChannel(const QString& name);
    FrameChannel(const FrameChannel&) = delete;
    FrameChannel& operator=(const FrameChannel&) = delete;
    ~FrameChannel();

    /// What the worker gets on its command line: the key of the semaphore and the name of the file.
    [[nodiscard]] const QString& name() const noexcept { return name_; }
    /// The frame file, in the temporary directory. It exists from the worker's start on.
    [[nodiscard]] QString filePath() const { return file_.fileName(); }

    /// A copy of the current picture, in Format_RGB32 (the bytes as they are in the file), or nothing when
    /// there is none.
    [[nodiscard]] std::optional<QImage> read(std::chrono::milliseconds patience = kPatience);
    /// The same while the caller has the semaphore already.
    [[nodiscard]] std::optional<QImage> read(const Hold& hold);

    /// Calls `reader` with the current picture, without a copy. False when there is none.
    bool withPicture(const PictureReader& reader, std::chrono::milliseconds patience = kPatience);
    /// The same while the caller has the semaphore already.
    bool withPicture(const Hold& hold, const PictureReader& reader);

    /// Call when the worker is dead: the semaphore is free then, also where the system does not see to it.
    void workerEnded() noexcept;

    /// Acquires the semaphore until the returned object goes.
    [[nodiscard]] Hold hold(std::chrono::milliseconds patience = kPatience);

private:
    struct Size {
        int width = 0;
        int height = 0;
    };
    [[nodiscard]] std::optional<Size> openPicture();
    void unmap();

    QString name_;
    std::unique_ptr<SharedLock> lock_;
    QFile file_;
    const uchar* mapping_ = nullptr;
    qint64 mappedBytes_ = 0;
};

} // namespace mediaworker::parent
