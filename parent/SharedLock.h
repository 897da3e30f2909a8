#pragma once

#include <QString>

#include <chrono>
#include <memory>

namespace mediaworker::parent {

/// The system semaphore that guards a frame file, as a lock: the very object that a `QSystemSemaphore` with
/// the same key opens in the worker, but with a time limit on the wait. Any thread may release what another
/// one acquired.
///
/// A worker that dies while it holds the semaphore:
///  - POSIX: it is a System V semaphore and every operation is made with SEM_UNDO, so the system gives it
///  back.
///  - Windows: nobody gives it back. Waits end by their time limit until reclaim() is called.
class SharedLock {
public:
    /// What to do when a semaphore with that key exists already.
    enum class IfTaken {
        Keep,  ///< leave the object that exists alone: isUsable() is false then
        Reset, ///< use it and set it free, whoever left it behind
    };

    /// Creates the semaphore with the count 1.
    /// @throws std::runtime_error when the system refuses.
    [[nodiscard]] static std::unique_ptr<SharedLock> create(const QString& key, IfTaken ifTaken);

    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;
    /// Removes the semaphore from the system: a worker that still runs would lose its lock.
    ~SharedLock();

    /// False when another semaphore has this one's place. Such a lock still keeps its place in the temporary
    /// directory, so that the next one made while it lives gets another.
    [[nodiscard]] bool isUsable() const noexcept;

    /// False when the time is over or the semaphore is gone.
    [[nodiscard]] bool acquire(std::chrono::milliseconds timeout) noexcept;
    /// Sets it free. Only after acquire() has returned true.
    void release() noexcept;

    /// Sets it free if a worker that is dead now took it along. Only when there is no other process any more
    /// that uses it.
    void reclaim() noexcept;

    /// The name under which Qt registers the semaphore of that key: the name of a kernel object on Windows,
    /// of a file in the temporary directory elsewhere.
    [[nodiscard]] static QString nativeName(const QString& key);

    /// Whether a file cannot be resized while another process maps it, as on Windows.
    [[nodiscard]] static bool mappingBlocksResize() noexcept;

private:
    struct Handle;
    explicit SharedLock(std::unique_ptr<Handle> handle);

    std::unique_ptr<Handle> handle_;
};

} // namespace mediaworker::parent
